// SPDX-License-Identifier: MIT
#pragma once

#include "portable/barcodeworker/messages.h"
#include "portable/base/helperprogram.h"

#include <QByteArray>
#include <QString>

#include <chrono>
#include <memory>

namespace portable {

/**
 * A process that searches pictures for codes: the program `barcodeworker` in the folder of this
 * library. It ends with the object. One thread uses an object at a time.
 */
class BarcodeProcess
{
public:
    using Clock = std::chrono::steady_clock;

    BarcodeProcess(); ///< Starts it. Throws std::runtime_error when that fails.
    ~BarcodeProcess();
    BarcodeProcess(const BarcodeProcess &) = delete;
    BarcodeProcess &operator=(const BarcodeProcess &) = delete;

    /// Whether it waits for a request, and hasn't ended meanwhile.
    bool isReady() const;

    /**
     * \param file  the picture, as BarcodeRequest says; it may be closed afterwards
     * \return false when the process has ended
     */
    bool send(const BarcodeRequest &request, int file);

    enum class Reception { Message, Late, Ended };

    /// Waits for a message, until `deadline`.
    Reception receive(Clock::time_point deadline, QByteArray *message);

    /// Ends it, if it still runs, and says how it ended: "signal 6 (Aborted)".
    QString end();

private:
    std::unique_ptr<HelperProgram> m_program; // never null
    int m_socket = -1;
};

} // namespace portable
