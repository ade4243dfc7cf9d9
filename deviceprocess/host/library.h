// SPDX-License-Identifier: MIT
#pragma once

#include "deviceprocess/arguments.h"
#include "deviceprocess/wire.h"

#include <QString>

#include <array>

namespace deviceprocess {

class Pictures;

/// What a library lacks, for the server's status; UTF-8, empty where nothing does.
struct Shortcomings
{
    QByteArray error; ///< Why one can't be loaded.
    QByteArray missing; ///< Functions, with commas.
};

/// The real device library: the portable one, or a maker's.
class Library
{
public:
    /**
     * Loads both libraries; what is missing is named in the log as well, and fails when it is
     * called. \param camera, cards  paths; a bare name is looked for beside the program, then as
     * the dynamic loader does
     */
    Shortcomings load(const QString &camera, const QString &cards);

    /**
     * Carries a call out on this thread. Throws what the library throws, and std::runtime_error for
     * a function that it doesn't have.
     */
    void execute(std::uint32_t function, Reader &arguments, Writer &reply, Pictures &pictures);

private:
    std::array<void *, functionCount> m_functions{};
};

} // namespace deviceprocess
