// SPDX-License-Identifier: MIT
#include "bench/pagecorpus/corpus.h"

#include "bench/pagecorpus/desk.h"
#include "bench/pagecorpus/fields.h"
#include "bench/pagecorpus/light.h"
#include "bench/pagecorpus/things.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <functional>

namespace pagecorpus {

namespace {

/// What is in front of the camera. Each kind of picture changes what makes it one.
struct Scene
{
    cv::Size size{1920, 1080};
    Desk desk = Desk::Plain;
    cv::Vec3f color{70, 85, 105};
    cv::Vec3f second{50, 60, 70};
    std::vector<Sheet> sheets{Sheet()};
    double fallOff = 0.08;
    int hardShadows = 0;
    bool isUnderWindow = false;
    int handsOnPage = 0;
    int handsOnCorners = 0;
    int handsOnDesk = 0;
    int things = 0;
    bool hasKeyboard = false;
    bool isStack = false; ///< its sheets overlap; the last one lies on top
    Camera camera;
    int reflections = 0;

    Sheet &page() { return sheets.front(); }
};

using Change = std::function<void(cv::RNG &random, Scene &scene)>;

struct Recipe
{
    const char *name;
    Group group;
    Change change;
};

cv::Vec3f grey(cv::RNG &random, double least, double most)
{
    const float level = between(random, least, most);
    const float warmth = between(random, -8, 8);
    return {level - warmth, level, level + warmth};
}

cv::Vec3f paper(cv::RNG &random)
{
    const float level = between(random, 228, 250);
    return {level - between(random, -3, 10), level, level + between(random, -2, 4)};
}

cv::Vec3f wood(cv::RNG &random)
{
    const float level = between(random, 50, 150);
    return {level * between(random, 0.45, 0.7), level * between(random, 0.72, 0.85), level};
}

template <class Value> Value oneOf(cv::RNG &random, std::initializer_list<Value> values)
{
    return *(values.begin() + random.uniform(0, int(values.size())));
}

Content printedContent(cv::RNG &random)
{
    return oneOf(random, {Content::Text, Content::Letter, Content::Form, Content::Photo});
}

void setWood(cv::RNG &random, Scene &scene)
{
    scene.desk = Desk::Wood;
    scene.color = wood(random);
    scene.second = scene.color * between(random, 0.5, 0.8);
}

void setPattern(cv::RNG &random, Scene &scene)
{
    scene.desk =
        oneOf(random, {Desk::Checks, Desk::Stripes, Desk::Dots, Desk::Tiles, Desk::Fabric});
    scene.color = {between(random, 40, 210), between(random, 40, 210), between(random, 40, 210)};
    const float step = between(random, 0.55, 0.9);
    scene.second =
        happens(random, 0.5) ? scene.color * step : scene.color * 0.3F + cv::Vec3f::all(130 * step);
}

void setWhite(cv::RNG &random, Scene &scene)
{
    const float level = between(random, 222, 246);
    scene.color = {level - between(random, -2, 6), level, level + between(random, -2, 3)};
    scene.second = scene.color * 0.95F;
}

void setCard(cv::RNG &random, Scene &scene)
{
    Sheet &card = scene.page();
    card.content = Content::Card;
    card.paper = {between(random, 150, 250), between(random, 170, 245), between(random, 150, 250)};
    card.ratio = 85.6 / 54;
    card.rounding = 3.2 / 85.6;
    card.least = 0.22;
    card.most = 0.55;
    card.turn = 45;
    card.shadow = 0.3;
}

void setReceipt(cv::RNG &random, Scene &scene)
{
    Sheet &receipt = scene.page();
    receipt.content = Content::Receipt;
    receipt.ratio = between(random, 0.24, 0.5);
    receipt.least = 0.5;
    receipt.turn = 30;
}

void setAnyDesk(cv::RNG &random, Scene &scene)
{
    switch (random.uniform(0, 4)) {
    case 0:
        scene.color = grey(random, 30, 190);
        return;
    case 1:
        return setWood(random, scene);
    case 2:
        return setPattern(random, scene);
    default:
        return setWhite(random, scene);
    }
}

void setMarble(cv::RNG &random, Scene &scene)
{
    scene.desk = Desk::Marble;
    scene.color = grey(random, 90, 215);
    scene.second = scene.color * between(random, 0.5, 0.8);
}

void setPlanks(cv::RNG &random, Scene &scene)
{
    setWood(random, scene);
    scene.desk = Desk::Planks;
}

void setSize(cv::RNG &random, Scene &scene)
{
    scene.size = oneOf<cv::Size>(random, {{1280, 720}, {1600, 1200}, {2592, 1944}, {800, 600}});
}

/// The kinds with a page; a name says what makes the search hard.
const std::vector<Recipe> &withPage()
{
    static const std::vector<Recipe> recipes{
        {"dark desk", Group::Tuned, [](cv::RNG &r, Scene &s) { s.color = grey(r, 20, 90); }},
        {"perspective", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             s.color = grey(r, 30, 150);
             s.page().tilt = 32;
             s.page().turn = 25;
         }},
        {"wooden desk", Group::Tuned, [](cv::RNG &r, Scene &s) { setWood(r, s); }},
        {"printed border", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             s.color = grey(r, 40, 160);
             s.page().content = Content::Framed;
         }},
        {"white desk", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             setWhite(r, s);
             s.fallOff = r.uniform(0.0, 0.2);
             s.page().shadow = r.uniform(0.12, 0.4);
         }},
        {"receipt", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             setReceipt(r, s);
         }},
        {"card", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             setCard(r, s);
         }},
        {"patterned desk", Group::Tuned, [](cv::RNG &r, Scene &s) { setPattern(r, s); }},
        {"grey desk, turned", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             s.color = grey(r, 110, 205);
             s.page().turn = 45;
         }},
        {"hard shadow", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             s.color = grey(r, 60, 200);
             s.hardShadows = r.uniform(1, 3);
         }},
        {"hand on the page", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.handsOnPage = r.uniform(1, 3);
             s.page().least = 0.5;
         }},
        {"lamp", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             s.color = grey(r, 100, 235);
             s.fallOff = r.uniform(0.1, 0.3);
         }},
        {"two pages", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.page().most = 0.6;
             s.sheets.push_back(s.page());
         }},
        {"dark paper", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             s.color = grey(r, 120, 235);
             s.page().paper = grey(r, 25, 90);
         }},
        {"glossy", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             s.color = grey(r, 30, 200);
             s.reflections = r.uniform(1, 4);
             s.page().content = Content::Photo;
         }},
        {"blank page", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.page().content = Content::Blank;
         }},
        {"other sizes", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             setSize(r, s);
         }},
        {"marble desk", Group::HeldOut, [](cv::RNG &r, Scene &s) { setMarble(r, s); }},
        {"planks", Group::HeldOut, [](cv::RNG &r, Scene &s) { setPlanks(r, s); }},
        {"open book", Group::HeldOut,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.page().content = Content::Book;
             s.page().ratio = 1 / 1.41;
         }},
        {"over the desk's edge", Group::HeldOut,
         [](cv::RNG &r, Scene &s) {
             s.desk = Desk::TwoTone;
             s.color = grey(r, 90, 220);
             s.second = grey(r, 20, 90);
         }},
        {"curled page", Group::HeldOut,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.page().curl = 5;
         }},
        {"among things", Group::HeldOut,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.things = r.uniform(2, 6);
         }},
        {"everything at once", Group::HeldOut,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.fallOff = r.uniform(0.05, 0.3);
             s.hardShadows = r.uniform(0, 2);
             s.handsOnPage = r.uniform(0, 2);
             s.things = r.uniform(0, 3);
             s.reflections = r.uniform(0, 2);
         }},
        {"out of focus", Group::Harsh,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.camera.blur = r.uniform(0.5, 2.0);
         }},
        {"little light", Group::Harsh,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.camera.exposure = r.uniform(0.2, 0.5);
             s.camera.noise = r.uniform(4.0, 10.0);
         }},
        {"strong compression", Group::Harsh,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.camera.quality = r.uniform(12, 35);
         }},
        {"fingers on corners", Group::Harsh,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.handsOnCorners = r.uniform(1, 3);
             s.page().least = 0.55;
         }},
        {"crumpled page", Group::Harsh,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.page().curl = 3;
             s.page().creases = r.uniform(0.04, 0.1);
         }},
        {"page on a page", Group::Harsh,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.isStack = true;
             s.sheets.push_back(s.page());
             s.page().content = printedContent(r);
         }},
        {"beside a keyboard", Group::Harsh, [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.hasKeyboard = true;
             s.things = r.uniform(0, 3);
         }}};
    return recipes;
}

const std::vector<Recipe> &withoutPage()
{
    static const std::vector<Recipe> recipes{
        {"empty: plain", Group::Tuned, [](cv::RNG &r, Scene &s) { s.color = grey(r, 20, 245); }},
        {"empty: lamp", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             s.color = grey(r, 80, 245);
             s.fallOff = r.uniform(0.09, 0.35);
         }},
        {"empty: wood", Group::Tuned, [](cv::RNG &r, Scene &s) { setWood(r, s); }},
        {"empty: pattern", Group::Tuned, [](cv::RNG &r, Scene &s) { setPattern(r, s); }},
        {"empty: hard shadow", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.hardShadows = r.uniform(1, 4);
         }},
        {"empty: hands", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.handsOnDesk = r.uniform(1, 3);
         }},
        {"empty: things", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.things = r.uniform(1, 7);
         }},
        {"empty: window light", Group::Tuned,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.isUnderWindow = true;
         }},
        {"empty: marble", Group::HeldOut, [](cv::RNG &r, Scene &s) { setMarble(r, s); }},
        {"empty: planks", Group::HeldOut, [](cv::RNG &r, Scene &s) { setPlanks(r, s); }},
        {"empty: desk's edge", Group::HeldOut,
         [](cv::RNG &r, Scene &s) {
             s.desk = Desk::TwoTone;
             s.color = grey(r, 90, 220);
             s.second = grey(r, 20, 90);
             s.things = r.uniform(0, 4);
         }},
        {"empty: everything", Group::HeldOut,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.fallOff = r.uniform(0.05, 0.3);
             s.hardShadows = r.uniform(0, 3);
             s.handsOnDesk = r.uniform(0, 3);
             s.things = r.uniform(0, 4);
             s.reflections = r.uniform(0, 3);
         }},
        {"empty: little light", Group::Harsh,
         [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.things = r.uniform(0, 4);
             s.camera.exposure = r.uniform(0.2, 0.5);
             s.camera.noise = r.uniform(4.0, 10.0);
         }},
        {"empty: page partly outside", Group::Harsh, [](cv::RNG &r, Scene &s) {
             setAnyDesk(r, s);
             s.sheets.assign(1, Sheet());
             s.page().paper = paper(r);
             s.page().content = oneOf(r, {Content::Text, Content::Letter});
             s.page().outside = r.uniform(0.1, 0.5);
         }}};
    return recipes;
}

/// Bends a layer by a smooth field, so that straight sides are not quite straight.
void bend(const cv::Mat &shift, cv::Mat &layer)
{
    cv::Mat map(layer.size(), CV_32FC2);
    for (int y = 0; y < map.rows; ++y) {
        for (int x = 0; x < map.cols; ++x) {
            const float by = shift.at<float>(y, x);
            map.at<cv::Vec2f>(y, x) = {float(x) + by, float(y) - by};
        }
    }
    cv::Mat source = layer.clone();
    cv::remap(source, layer, map, cv::noArray(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
}

/// The sheet with the shadow at its sides: more on those away from the light, some on all.
void laySheet(cv::RNG &random, cv::Mat &picture, const Sheet &sheet, const Corners &corners)
{
    cv::Mat mask = coverage(picture.size(), sheet, corners);
    cv::Mat layer = printed(random, picture.size(), sheet, corners);
    if (sheet.curl > 0) {
        const cv::Mat shift = sheet.curl * noiseField(random, picture.size(), {700, 700});
        bend(shift, mask);
        bend(shift, layer);
    }
    if (sheet.creases > 0) {
        const cv::Mat shift = noiseField(random, picture.size(), {220, 220});
        bend(shift, mask);
        bend(shift, layer);
        shade(layer, 1 + sheet.creases * noiseField(random, picture.size(), {70, 70}));
    }
    const double reach = between(random, 2, 9);
    const cv::Matx23d move{1, 0, random.uniform(-reach, reach),
                           0, 1, random.uniform(-reach, reach)};
    cv::Mat moved;
    cv::warpAffine(mask, moved, move, mask.size());
    const double depth = sheet.shadow * random.uniform(0.5, 1.0);
    shade(picture, 1 - depth * softened(moved, reach * random.uniform(0.7, 1.2)));
    blend(picture, mask, layer);
}

bool overlap(const Corners &a, const Corners &b)
{
    const cv::Rect first = cv::boundingRect(std::vector<cv::Point2f>(a.begin(), a.end()));
    const cv::Rect other = cv::boundingRect(std::vector<cv::Point2f>(b.begin(), b.end()));
    return !(first & other).empty();
}

/// Lays as many of the sheets as there is room for.
std::vector<Corners> laySheets(cv::RNG &random, cv::Mat &picture, const Scene &scene)
{
    std::vector<Corners> pages;
    for (const Sheet &sheet : scene.sheets) {
        for (int attempt = 0; attempt < 30; ++attempt) {
            const Corners corners = place(random, picture.size(), sheet);
            const bool isFree = scene.isStack
                || std::none_of(pages.begin(), pages.end(),
                                [&](const Corners &other) { return overlap(corners, other); });
            if (isFree) {
                laySheet(random, picture, sheet, corners);
                pages.push_back(corners);
                break;
            }
        }
    }
    if (pages.size() == 2 && overlap(pages[0], pages[1])) {
        pages.erase(pages.begin()); // the one below
    }
    const bool isOutside = !scene.sheets.empty() && scene.sheets.front().outside > 0;
    return isOutside ? std::vector<Corners>() : pages;
}

/// A point on a side or near a corner of the page, somewhat inside.
cv::Point2f heldAt(cv::RNG &random, const Corners &corners)
{
    const auto side = size_t(random.uniform(0, 4));
    const float along = between(random, 0, 1);
    const cv::Point2f edge = corners[side] * (1 - along) + corners[(side + 1) % 4] * along;
    const cv::Point2f center = (corners[0] + corners[2]) / 2;
    return edge + (center - edge) * between(random, 0.05, 0.3);
}

void layOnTop(cv::RNG &random, cv::Mat &picture, const Scene &scene,
              const std::vector<Corners> &pages)
{
    for (int i = 0; i < scene.handsOnPage && !pages.empty(); ++i) {
        layHand(random, picture, heldAt(random, pages[0]));
    }
    for (int i = 0; i < scene.handsOnCorners && !pages.empty(); ++i) {
        layHand(random, picture, pages[0][size_t(random.uniform(0, 4))]);
    }
    for (int i = 0; i < scene.handsOnDesk; ++i) {
        layHand(random, picture,
                {between(random, 0.2, 0.8) * float(picture.cols),
                 between(random, 0.3, 0.9) * float(picture.rows)});
    }
}

void light(cv::RNG &random, cv::Mat &picture, const Scene &scene, const std::vector<Corners> &pages)
{
    shade(picture, lampLight(random, picture.size(), scene.fallOff));
    for (int i = 0; i < scene.hardShadows; ++i) {
        shade(picture, hardShadow(random, picture.size()));
    }
    if (scene.isUnderWindow) {
        shade(picture, windowLight(random, picture.size()) * 0.7);
    }
    for (int i = 0; i < scene.reflections; ++i) {
        const cv::Point2f anywhere{between(random, 0, picture.cols),
                                   between(random, 0, picture.rows)};
        const cv::Point2f center =
            pages.empty() || happens(random, 0.3) ? anywhere : heldAt(random, pages[0]);
        paint(picture, reflection(random, picture.size(), center), {250, 252, 255});
    }
}

Sample made(cv::RNG &random, const Scene &scene)
{
    cv::Mat picture = paintDesk(random, scene.size, scene.desk, scene.color, scene.second);
    for (int i = 0; i < scene.things; ++i) {
        layThing(random, picture);
    }
    if (scene.hasKeyboard) {
        layKeyboard(random, picture);
    }
    const std::vector<Corners> pages = laySheets(random, picture, scene);
    layOnTop(random, picture, scene, pages);
    light(random, picture, scene, pages);
    cv::setRNGSeed(int(random.next() >> 1)); // of cv::randn()
    return {photographed(random, picture, scene.camera), pages};
}

/// Makes seeds that follow each other independent (SplitMix64 by Steele, Lea and Flood).
uint64 scattered(uint64 seed)
{
    seed += 0x9e3779b97f4a7c15;
    seed = (seed ^ (seed >> 30)) * 0xbf58476d1ce4e5b9;
    seed = (seed ^ (seed >> 27)) * 0x94d049bb133111eb;
    return seed ^ (seed >> 31);
}

} // namespace

std::vector<Kind> kinds()
{
    std::vector<Kind> result;
    for (const Recipe &recipe : withPage()) {
        result.push_back({recipe.name, true, recipe.group});
    }
    for (const Recipe &recipe : withoutPage()) {
        result.push_back({recipe.name, false, recipe.group});
    }
    return result;
}

Sample sample(const std::string &kind, int seed)
{
    for (const auto *recipes : {&withPage(), &withoutPage()}) {
        for (size_t i = 0; i < recipes->size(); ++i) {
            const Recipe &recipe = (*recipes)[i];
            if (recipe.name == kind) {
                const bool hasPage = recipes == &withPage();
                cv::RNG random(scattered(uint64(seed) * 1000 + i * 2 + uint64(hasPage)));
                Scene scene;
                scene.page().paper = paper(random);
                scene.page().content = printedContent(random);
                if (!hasPage) {
                    scene.sheets.clear();
                }
                recipe.change(random, scene);
                return made(random, scene);
            }
        }
    }
    return {};
}

double error(const Sample &sample, const Corners &found)
{
    const double diagonal = std::hypot(sample.picture.cols, sample.picture.rows);
    double least = 1;
    for (const Corners &page : sample.pages) {
        for (size_t shift = 0; shift < 4; ++shift) {
            double farthest = 0;
            for (size_t i = 0; i < 4; ++i) {
                farthest = std::max(farthest, cv::norm(found[(i + shift) % 4] - page[i]));
            }
            least = std::min(least, farthest / diagonal);
        }
    }
    return least;
}

} // namespace pagecorpus
