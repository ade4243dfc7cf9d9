// SPDX-License-Identifier: MIT
#include "portable/card/holdercodes.h"

#include <QString>

#include <iterator>

namespace portable {

namespace {

constexpr const char *nations[] = {
    "汉",     "蒙古",   "回",       "藏",     "维吾尔",   "苗",   "彝",     "壮",
    "布依",   "朝鲜",   "满",       "侗",     "瑶",       "白",   "土家",   "哈尼",
    "哈萨克", "傣",     "黎",       "傈僳",   "佤",       "畲",   "高山",   "拉祜",
    "水",     "东乡",   "纳西",     "景颇",   "柯尔克孜", "土",   "达斡尔", "仫佬",
    "羌",     "布朗",   "撒拉",     "毛南",   "仡佬",     "锡伯", "阿昌",   "普米",
    "塔吉克", "怒",     "乌孜别克", "俄罗斯", "鄂温克",   "德昂", "保安",   "裕固",
    "京",     "塔塔尔", "独龙",     "鄂伦春", "赫哲",     "门巴", "珞巴",   "基诺",
};

} // namespace

QString sexOfCode(int code)
{
    return code == 1 ? QStringLiteral("男") : code == 2 ? QStringLiteral("女") : QString();
}

QString nationOfCode(int code)
{
    const int count = int(std::size(nations));
    return code >= 1 && code <= count ? QString::fromUtf8(nations[code - 1]) : QString();
}

} // namespace portable
