// SPDX-License-Identifier: MIT
#include "companions/signature/signwindow.h"

#include "companions/common/customerscreen.h"
#include "companions/signature/pageview.h"
#include "companions/signature/palette.h"
#include "companions/signature/signaturepad.h"

#include <QCloseEvent>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>

#include <algorithm>

namespace {

constexpr int urgentSeconds = 10;

/// The place as fractions of the page, from its upper left corner.
QRectF shareOfPage(const QRectF &place, const QSizeF &page)
{
    return QRectF(place.left() / page.width(), 1 - (place.top() + place.height()) / page.height(),
                  place.width() / page.width(), place.height() / page.height());
}

/// A line of text that is shortened to the available width.
class ElidedLabel : public QLabel
{
public:
    explicit ElidedLabel(const QString &text)
    {
        setAccessibleName(text);
        setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    }

protected:
    void resizeEvent(QResizeEvent *event) override
    {
        QLabel::resizeEvent(event);
        setText(fontMetrics().elidedText(accessibleName(), Qt::ElideMiddle, width()));
    }
};

/// Sizes follow the screen's; on small ones the buttons stay large enough for fingers.
QString styleFor(int unit)
{
    return QStringLiteral(R"(
        SignWindow { background: %2; }
        QWidget { font-size: %1px; color: %3; }
        QWidget#header { background: %4; }
        QWidget#header QLabel { color: white; }
        QLabel#title { font-size: %5px; font-weight: bold; }
        QLabel#hint { color: %6; }
        QPushButton { background: white; border: 2px solid %7; border-radius: 10px;
                      padding: %8px %1px; font-size: %1px; }
        QPushButton:pressed { background: %7; }
        QPushButton:disabled { color: %9; }
        QPushButton[role="main"] { background: %10; border-color: %10; color: white;
                                   font-weight: bold; }
        QPushButton[role="main"]:pressed { background: %4; border-color: %4; }
        QPushButton[role="main"]:disabled { background: %7; border-color: %7; }
        QPushButton[role="small"] { border-width: 1px; padding: %11px; font-size: %12px; }
        QScrollArea { background: transparent; }
        )")
        .arg(unit)
        .arg(palette::ground.name(), palette::text.name(), palette::header.name())
        .arg(unit * 14 / 10)
        .arg(palette::quiet.name(), palette::line.name())
        .arg(unit * 7 / 10)
        .arg(palette::placeholder.name(), palette::accent.name())
        .arg(unit * 3 / 10)
        .arg(unit * 8 / 10);
}

} // namespace

SignWindow::SignWindow(const SigningRequest &request, int pageCount, const QSizeF &pageSize)
    : m_request(request)
    , m_pageCount(pageCount)
    , m_place(shareOfPage(request.inkPlace(), pageSize))
    , m_page(request.wholeDocument ? 1 : request.page)
    , m_secondsLeft(request.timeoutSeconds)
{
    // The teller keeps typing in a window on the other screen.
    setWindowFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint
                   | Qt::WindowDoesNotAcceptFocus);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setWindowTitle(QStringLiteral("签名 Signature"));
    const QSize screen = customerScreen() ? customerScreen()->size() : QSize(800, 600);
    const int unit = std::clamp(std::min(screen.width(), screen.height()) / 40, 13, 40);
    setStyleSheet(styleFor(unit));
    arrange(screen);
    m_seconds.setInterval(1000);
    connect(&m_seconds, &QTimer::timeout, this, &SignWindow::tick);
    connect(m_pad, &SignaturePad::changed, this, &SignWindow::inkChanged);
    inkChanged();
}

void SignWindow::arrange(const QSize &screen)
{
    auto *header = makeHeader();
    auto *pages = makePages();
    auto *signing = makeSigning();
    auto *all = new QVBoxLayout(this);
    all->setSizeConstraint(QLayout::SetNoConstraint); // never larger than the screen
    all->setContentsMargins(0, 0, 0, 0);
    all->setSpacing(0);
    all->addWidget(header);
    const bool wide = screen.width() > screen.height();
    const int room = wide ? screen.height() * 6 / 10 : screen.height() * 3 / 10;
    const int width = wide ? screen.width() * 11 / 20 : screen.width();
    m_pad->setMaximumHeight(std::min(room, int(width / m_pad->aspect())));
    auto *body = new QBoxLayout(wide ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
    const int margin = std::min(screen.width(), screen.height()) / 40;
    body->setContentsMargins(margin, margin, margin, margin);
    body->setSpacing(margin);
    body->addWidget(pages, wide ? 9 : 3);
    body->addWidget(signing, wide ? 11 : 2);
    all->addLayout(body, 1);
}

QWidget *SignWindow::makeHeader()
{
    auto *header = new QWidget;
    header->setObjectName(QStringLiteral("header"));
    auto *title = new QLabel(QStringLiteral("电子签名  Signature"));
    title->setObjectName(QStringLiteral("title"));
    auto *document = new ElidedLabel(QFileInfo(m_request.pdfPath).fileName());
    document->setTextFormat(Qt::PlainText);
    m_time = new QLabel;
    m_time->setObjectName(QStringLiteral("title"));
    auto *row = new QHBoxLayout(header);
    row->setContentsMargins(24, 14, 24, 14);
    row->setSpacing(24);
    row->addWidget(title);
    row->addWidget(document, 1);
    row->addWidget(m_time);
    return header;
}

QWidget *SignWindow::makePages()
{
    auto *pages = new QWidget;
    m_view = new PageView;
    m_pageNumber = new QLabel;
    m_back = makeButton(QStringLiteral("上一页"), QStringLiteral("Previous"), "small");
    m_next = makeButton(QStringLiteral("下一页"), QStringLiteral("Next"), "small");
    m_toPlace = makeButton(QStringLiteral("签名页"), QStringLiteral("Signature"), "small");
    m_enlarge = makeButton(QStringLiteral("放大"), QStringLiteral("Zoom"), "small");
    connect(m_back, &QPushButton::clicked, this, [this] { turnTo(m_page - 1); });
    connect(m_next, &QPushButton::clicked, this, [this] { turnTo(m_page + 1); });
    connect(m_toPlace, &QPushButton::clicked, this, [this] { turnTo(m_request.page); });
    connect(m_enlarge, &QPushButton::clicked, this, [this] {
        m_view->setEnlarged(!m_view->isEnlarged());
        m_enlarge->setText(m_view->isEnlarged() ? QStringLiteral("缩小\nFit")
                                                : QStringLiteral("放大\nZoom"));
    });
    auto *row = new QHBoxLayout;
    row->addWidget(m_back);
    row->addWidget(m_pageNumber, 1, Qt::AlignCenter);
    row->addWidget(m_next);
    row->addWidget(m_toPlace);
    row->addWidget(m_enlarge);
    for (QPushButton *button : {m_back, m_next, m_toPlace}) {
        button->setVisible(m_request.wholeDocument && m_pageCount > 1);
    }
    auto *column = new QVBoxLayout(pages);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(m_view, 1);
    column->addLayout(row);
    updatePageButtons();
    return pages;
}

QWidget *SignWindow::makeSigning()
{
    auto *signing = new QWidget;
    m_pad = new SignaturePad(m_request.padAspect());
    auto *hint = new QLabel(QStringLiteral("请阅读文件，用手指、笔或鼠标签名，然后确认。\n"
                                           "Read the document, sign with a finger, pen or "
                                           "mouse, then confirm."));
    hint->setObjectName(QStringLiteral("hint"));
    hint->setWordWrap(true);
    m_cancel = makeButton(QStringLiteral("取消"), QStringLiteral("Cancel"), "");
    m_clear = makeButton(QStringLiteral("清除"), QStringLiteral("Clear"), "");
    m_confirm = makeButton(QStringLiteral("确认"), QStringLiteral("Confirm"), "main");
    connect(m_cancel, &QPushButton::clicked, this, [this] { end(&SignWindow::cancelled); });
    connect(m_clear, &QPushButton::clicked, m_pad, &SignaturePad::clear);
    connect(m_confirm, &QPushButton::clicked, this, [this] { end(&SignWindow::confirmed); });
    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(16);
    buttons->addWidget(m_cancel, 2);
    buttons->addWidget(m_clear, 2);
    buttons->addWidget(m_confirm, 3);
    auto *column = new QVBoxLayout(signing);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(16);
    column->addStretch(1);
    column->addWidget(hint);
    column->addWidget(m_pad, 1000); // as high as possible
    column->addLayout(buttons);
    column->addStretch(1);
    return signing;
}

QPushButton *SignWindow::makeButton(const QString &chinese, const QString &english,
                                    const char *role)
{
    auto *button = new QPushButton(chinese + QLatin1Char('\n') + english);
    button->setProperty("role", QString::fromLatin1(role));
    button->setFocusPolicy(Qt::NoFocus);
    return button;
}

void SignWindow::open()
{
    if (QScreen *screen = customerScreen()) {
        setGeometry(screen->geometry());
    }
    setWindowState(Qt::WindowFullScreen);
    show(); // showFullScreen() would take the keyboard focus
    tick();
    if (m_request.timeoutSeconds > 0) {
        m_seconds.start();
    }
    turnTo(m_page);
}

/// Counts a second down and shows the time left.
void SignWindow::tick()
{
    if (m_request.timeoutSeconds <= 0) {
        return;
    }
    if (m_seconds.isActive() && --m_secondsLeft <= 0) {
        end(&SignWindow::timedOut);
        return;
    }
    m_time->setText(QStringLiteral("剩余时间 Time left  %1 s").arg(m_secondsLeft));
    if (m_secondsLeft <= urgentSeconds) {
        m_time->setStyleSheet(QStringLiteral("color: %1").arg(palette::urgent.name()));
    }
}

void SignWindow::turnTo(int page)
{
    m_page = std::clamp(page, 1, m_pageCount);
    updatePageButtons();
    m_view->setPlace({});
    m_view->setPage({});
    Q_EMIT pageNeeded(m_page);
}

void SignWindow::showPage(int page, const QImage &image)
{
    if (page != m_page) {
        return;
    }
    m_view->setPlace(page == m_request.page ? m_place : QRectF());
    m_view->setPage(image);
}

void SignWindow::updatePageButtons()
{
    m_pageNumber->setText(QStringLiteral("第 %1 / %2 页").arg(m_page).arg(m_pageCount));
    m_back->setEnabled(m_page > 1);
    m_next->setEnabled(m_page < m_pageCount);
    m_toPlace->setEnabled(m_page != m_request.page);
}

void SignWindow::inkChanged()
{
    const bool anything = !m_pad->ink().strokes().isEmpty();
    m_clear->setEnabled(anything);
    m_confirm->setEnabled(m_pad->holdsSignature());
    m_view->setInk(m_pad->ink());
    if (anything && m_page != m_request.page && isVisible()) {
        turnTo(m_request.page); // to show the customer where the signature goes
    }
}

void SignWindow::confirm()
{
    m_confirm->click();
}

void SignWindow::cancel()
{
    m_cancel->click();
}

void SignWindow::closeEvent(QCloseEvent *event)
{
    event->accept();
    end(&SignWindow::cancelled);
}

void SignWindow::end(void (SignWindow::*outcome)())
{
    if (m_ended) {
        return;
    }
    m_ended = true;
    m_seconds.stop();
    hide();
    Q_EMIT(this->*outcome)();
}
