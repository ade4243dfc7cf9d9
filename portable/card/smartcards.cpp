// SPDX-License-Identifier: MIT
#include "portable/card/smartcards.h"

#include <QStringList>
#include <winscard.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace portable {

namespace {

constexpr auto sharingTimeout = std::chrono::milliseconds(1000); // while another program has it
constexpr auto retryInterval = std::chrono::milliseconds(50);

QString reasonOf(const char *step, LONG code)
{
    return QStringLiteral("%1: %2 (0x%3)")
        .arg(QLatin1String(step), QString::fromUtf8(pcsc_stringify_error(code)))
        .arg(quint32(code), 8, 16, QLatin1Char('0'));
}

/// A connection to the PC/SC service.
class Context
{
public:
    Context()
        : m_code(SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &m_handle))
    {
    }
    ~Context()
    {
        if (m_code == SCARD_S_SUCCESS) {
            SCardReleaseContext(m_handle);
        }
    }
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;

    SCARDCONTEXT handle() const { return m_handle; }

    /// The readers whose name has `part` in it; without one, the reason is in `reason`.
    std::vector<QByteArray> readers(const QString &part, QString *reason) const
    {
        if (m_code != SCARD_S_SUCCESS) {
            *reason = reasonOf("the PC/SC service (pcscd) doesn't respond", m_code);
            return {};
        }
        DWORD size = 0;
        LONG code = SCardListReaders(m_handle, nullptr, nullptr, &size);
        QByteArray names(int(size), '\0');
        if (code == SCARD_S_SUCCESS) { // fails if a reader was just plugged in; the next read works
            code = SCardListReaders(m_handle, nullptr, names.data(), &size);
        }
        if (code != SCARD_S_SUCCESS) {
            *reason = reasonOf("no PC/SC reader", code);
            return {};
        }
        std::vector<QByteArray> result;
        QStringList others;
        for (const QByteArray &name : names.left(int(size)).split('\0')) {
            const QString text = QString::fromUtf8(name);
            if (text.isEmpty()) {
                continue;
            }
            if (text.contains(part, Qt::CaseInsensitive)) {
                result.push_back(name);
            } else {
                others << text;
            }
        }
        if (result.empty()) {
            *reason = others.isEmpty()
                ? QStringLiteral("no PC/SC reader is connected")
                : QStringLiteral("no PC/SC reader has \"%1\" in its name, there are: %2")
                      .arg(part, others.join(QStringLiteral(", ")));
        }
        return result;
    }

private:
    SCARDCONTEXT m_handle = 0;
    const LONG m_code;
};

class PcscConnection : public CardConnection
{
public:
    explicit PcscConnection(const Context &context)
        : m_context(context)
    {
    }
    ~PcscConnection() override
    {
        if (m_isConnected) {
            // Reset, so that no application stays selected. Resetting a card that is gone would
            // keep the service from noticing the next one.
            SCardDisconnect(m_handle, m_isGone ? SCARD_LEAVE_CARD : SCARD_RESET_CARD);
        }
    }

    /// Exclusive: another program's commands between ours could select another application.
    bool connect(const QByteArray &reader, QString *reason)
    {
        const auto end = std::chrono::steady_clock::now() + sharingTimeout;
        LONG code = tryConnect(reader);
        while (code == LONG(SCARD_E_SHARING_VIOLATION) && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(retryInterval);
            code = tryConnect(reader);
        }
        m_isConnected = code == SCARD_S_SUCCESS;
        if (!m_isConnected) {
            *reason = reasonOf(code == LONG(SCARD_E_SHARING_VIOLATION)
                                   ? "another program is using the card"
                                   : "can't connect to the card",
                               code);
        }
        return m_isConnected;
    }

    bool isT0() const override { return m_protocol == SCARD_PROTOCOL_T0; }

    QByteArray transmit(const QByteArray &command, QString *error) override
    {
        const SCARD_IO_REQUEST *const protocol = isT0() ? SCARD_PCI_T0 : SCARD_PCI_T1;
        const auto *const bytes = reinterpret_cast<const unsigned char *>(command.constData());
        unsigned char answer[MAX_BUFFER_SIZE];
        DWORD size = sizeof answer;
        const LONG code =
            SCardTransmit(m_handle, protocol, bytes, DWORD(command.size()), nullptr, answer, &size);
        // Some drivers report success without data for a card that was pulled out.
        m_isGone = code != SCARD_S_SUCCESS || size < 2;
        if (code != SCARD_S_SUCCESS) {
            *error = reasonOf("it doesn't respond", code);
            return {};
        }
        return {reinterpret_cast<const char *>(answer), int(size)};
    }

private:
    LONG tryConnect(const QByteArray &reader)
    {
        return SCardConnect(m_context.handle(), reader.constData(), SCARD_SHARE_EXCLUSIVE,
                            SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &m_handle, &m_protocol);
    }

    const Context &m_context;
    SCARDHANDLE m_handle = 0;
    DWORD m_protocol = 0;
    bool m_isConnected = false;
    bool m_isGone = false;
};

/// Readers make up this ATR for contactless cards: 3B 8n 80 01 (PC/SC part 3, 3.1.3.2.3).
bool isContactless(const SCARD_READERSTATE &state)
{
    const unsigned char *const atr = state.rgbAtr;
    return state.cbAtr >= 4 && atr[0] == 0x3B && (atr[1] & 0xF0) == 0x80 && atr[2] == 0x80
        && atr[3] == 0x01;
}

/// Whether this is the slot of a security module, "... SAM 0": its card isn't the customer's.
bool isSamSlot(const QByteArray &reader)
{
    return reader.toUpper().split(' ').contains("SAM");
}

/// The readers with a customer's card, in the order to try them.
std::vector<SCARD_READERSTATE> cards(const Context &context, const std::vector<QByteArray> &readers,
                                     bool contactlessFirst, QString *reason)
{
    std::vector<SCARD_READERSTATE> states;
    for (const QByteArray &reader : readers) {
        SCARD_READERSTATE state = {};
        state.szReader = reader.constData();
        states.push_back(state);
    }
    const LONG code =
        SCardGetStatusChange(context.handle(), 0, states.data(), DWORD(states.size()));
    if (code != SCARD_S_SUCCESS) {
        *reason = reasonOf("the PC/SC readers don't report their state", code);
        return {};
    }
    states.erase(std::remove_if(states.begin(), states.end(),
                                [](const SCARD_READERSTATE &state) {
                                    return (state.dwEventState & SCARD_STATE_PRESENT) == 0
                                        || isSamSlot(state.szReader);
                                }),
                 states.end());
    std::stable_partition(states.begin(), states.end(), [=](const SCARD_READERSTATE &state) {
        return isContactless(state) == contactlessFirst;
    });
    if (states.empty()) {
        *reason = QStringLiteral("no card on a PC/SC reader");
    }
    return states;
}

} // namespace

bool PcscCards::hasReader(const QString &name, QString *reason)
{
    return !Context().readers(name, reason).empty();
}

CardPresence PcscCards::visit(const QString &name, bool contactlessFirst, const Read &read,
                              QString *reason)
{
    const Context context;
    const std::vector<QByteArray> readers = context.readers(name, reason);
    if (readers.empty()) {
        return CardPresence::NoReader;
    }
    const auto present = cards(context, readers, contactlessFirst, reason);
    for (const SCARD_READERSTATE &state : present) {
        PcscConnection connection(context);
        if (connection.connect(state.szReader, reason) && read(connection)) {
            break;
        }
    }
    return present.empty() ? CardPresence::NoCard : CardPresence::Card;
}

} // namespace portable
