// SPDX-License-Identifier: MIT
#include "portable/camera/pageturning.h"

#include <atomic>

namespace portable {

namespace {

std::atomic<int> wanted{0};

} // namespace

PageTurning::PageTurning()
{
    ++wanted;
}

PageTurning::~PageTurning()
{
    --wanted;
}

bool PageTurning::isOn()
{
    return wanted > 0;
}

} // namespace portable
