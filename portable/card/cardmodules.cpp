// SPDX-License-Identifier: MIT
#include "portable/card/cardmodules.h"

#include "portable/base/failure.h"
#include "portable/card/idcardtext.h"
#include "portable/card/moduleframe.h"
#include "portable/card/serialport.h"

#include <QDir>
#include <QFile>
#include <QtEndian>
#include <sys/stat.h>

#include <algorithm>

namespace portable {

namespace {

using std::chrono::milliseconds;

constexpr int speeds[] = {115200, 57600, 38400, 19200, 9600}; // the usual one first
constexpr auto probeTime = milliseconds(200); // for the answer at one speed
constexpr auto commandTime = milliseconds(1000);
constexpr auto readTime = milliseconds(3500); // of which 1.4 s are the transfer at 9600 bit/s
constexpr int maxNoise = 16 * 1024; // bytes that belong to no answer

struct Command
{
    quint8 code;
    quint8 parameter;
    const char *name; ///< For the log.
};
constexpr Command moduleStatus{0x11, 0xFF, "status"};
constexpr Command moduleNumber{0x12, 0xFF, "module number"};
constexpr Command findCard{0x20, 0x01, "find a card"};
constexpr Command selectCard{0x20, 0x02, "select the card"};
constexpr Command readCard{0x30, 0x01, "read the card"};

constexpr int succeeded = 0x000090;
constexpr int found = 0x00009F;
constexpr int notFound = 0x000080;

/// What the module says, for the log.
QString meaning(int status)
{
    const auto text = [status]() -> const char * {
        switch (status) {
        case 0x10:
        case 0x11:
            return "the request arrived damaged";
        case 0x21:
        case 0x24:
            return "it doesn't know the command";
        case 0x23:
        case 0x66:
            return "the module isn't authorized";
        case 0x31:
        case 0x32:
        case 0x33:
            return "module and card don't accept each other";
        case 0x40:
            return "the kind of card is unknown";
        case 0x41:
            return "reading failed; was the card taken away?";
        case 0x60:
            return "the module's self-test failed";
        case 0x80:
            return "no card";
        case 0x81:
            return "selecting failed; was the card taken away?";
        default:
            return "failed";
        }
    }();
    return QStringLiteral("%1 (%2)").arg(QLatin1String(text)).arg(status, 6, 16, QLatin1Char('0'));
}

/// A port and which node it is at present: an adapter that was plugged in again has a new one.
QString nodeOf(const QString &port)
{
    struct stat node = {};
    const bool exists = ::stat(QFile::encodeName(port).constData(), &node) == 0;
    return QStringLiteral("%1 %2 %3")
        .arg(port)
        .arg(exists ? node.st_ino : 0)
        .arg(exists ? node.st_ctime : 0);
}

QString speedList()
{
    QStringList texts;
    for (const int speed : speeds) {
        texts << QString::number(speed);
    }
    return texts.join(QStringLiteral(", "));
}

} // namespace

/// Commands to the module on an open port, and its answers, until the deadline.
class ModuleConversation
{
public:
    ModuleConversation(std::unique_ptr<SerialPort> port, SerialPort::Clock::time_point deadline)
        : m_port(std::move(port))
        , m_deadline(deadline)
    {
    }

    bool setSpeed(int speed, QString *error) { return m_port->setSpeed(speed, error); }

    /**
     * Sends a command and waits for the answer; once more if the answer arrives damaged.
     * \return false without an answer, with the reason in `error`
     */
    bool exchange(const Command &command, milliseconds time, ModuleAnswer *answer, QString *error)
    {
        for (int tries = 0; tries < 2; ++tries) {
            error->clear();
            const Outcome outcome = tryExchange(command, time, answer, error);
            if (outcome != Outcome::Damaged) {
                return outcome == Outcome::Answered || prefix(command, error);
            }
        }
        return prefix(command, error);
    }

    /// The same; false also when the status isn't `expected`.
    bool command(const Command &command, milliseconds time, int expected, ModuleAnswer *answer,
                 QString *error)
    {
        if (!exchange(command, time, answer, error)) {
            return false;
        }
        return answer->status == expected
            || setError(QLatin1String(command.name) + QStringLiteral(": ")
                            + meaning(answer->status),
                        error);
    }

private:
    enum class Outcome { Answered, Damaged, Failed };

    Outcome tryExchange(const Command &command, milliseconds time, ModuleAnswer *answer,
                        QString *error)
    {
        const auto end = std::min(SerialPort::Clock::now() + time, m_deadline);
        if (!m_port->send(moduleRequest(command.code, command.parameter), end, error)) {
            return Outcome::Failed;
        }
        FrameCollector collector;
        while (SerialPort::Clock::now() < end && collector.skipped() < maxNoise) {
            const QByteArray bytes = m_port->receive(end, error);
            if (!error->isEmpty()) {
                return Outcome::Failed;
            }
            switch (collector.add(bytes)) {
            case FrameCollector::State::Complete:
                *answer = collector.answer();
                return Outcome::Answered;
            case FrameCollector::State::WrongCheckByte:
                *error = QStringLiteral("the check byte of its answer is wrong");
                return Outcome::Damaged;
            case FrameCollector::State::Incomplete:
                break;
            }
        }
        if (collector.hasBegun()) {
            *error = QStringLiteral("its answer breaks off");
            return Outcome::Damaged;
        }
        *error = collector.skipped() > 0 ? QStringLiteral("it sends something else")
                                         : QStringLiteral("it doesn't answer");
        return Outcome::Failed;
    }

    static bool prefix(const Command &command, QString *error)
    {
        return prefixError(QLatin1String(command.name), error);
    }

    const std::unique_ptr<SerialPort> m_port;
    const SerialPort::Clock::time_point m_deadline;
};

namespace {

/// Text and photo of an answer to readCard: two lengths of two bytes, then both.
QJsonObject fieldsOf(const QByteArray &data, QString *error)
{
    const auto length = [&data](int place) { return qFromBigEndian<quint16>(data.data() + place); };
    constexpr int lengths = 4;
    if (data.size() < lengths || lengths + length(0) + length(2) > data.size()) {
        setError(QStringLiteral("the lengths in its answer are wrong"), error);
        return {};
    }
    QJsonObject fields = decodeIdCardText(data.mid(lengths, length(0)), error);
    const QByteArray photo = data.mid(lengths + length(0), length(2));
    if (!fields.isEmpty() && !photo.isEmpty()) {
        fields.insert(QStringLiteral("photoBlock"), QString::fromLatin1(photo.toBase64()));
    }
    return fields;
}

CardAttempt readBy(ModuleConversation &module)
{
    CardAttempt result;
    ModuleAnswer answer;
    if (!module.exchange(findCard, commandTime, &answer, &result.reason)) {
        return result;
    }
    if (answer.status == notFound) {
        return {CardPresence::NoCard,
                {},
                QStringLiteral("no card on the ID-card module; one that has been read must be "
                               "lifted before it is read again")};
    }
    if (answer.status != found) {
        result.reason = meaning(answer.status);
    } else if (module.command(selectCard, commandTime, succeeded, &answer, &result.reason)
               && module.command(readCard, readTime, succeeded, &answer, &result.reason)) {
        result.fields = fieldsOf(answer.data, &result.reason);
    }
    return result;
}

/// "05.03-20200101-0000000001-0000000001": two numbers of two bytes and three of four, least
/// significant byte first.
QByteArray numberText(const QByteArray &data)
{
    const auto part = [&data](int place) {
        return qFromLittleEndian<quint32>(data.data() + place);
    };
    const auto digits = [](quint32 value, int count) {
        return QByteArray::number(value).rightJustified(count, '0');
    };
    return digits(part(0) & 0xFFFF, 2) + '.' + digits(part(0) >> 16, 2) + '-' + digits(part(4), 8)
        + '-' + digits(part(8), 10) + '-' + digits(part(12), 10);
}

} // namespace

CardModules::CardModules(Ports ports, milliseconds timeLimit)
    : m_ports(std::move(ports))
    , m_timeLimit(timeLimit)
{
}

CardModules::~CardModules() = default;

QStringList CardModules::usualPorts()
{
    const QDir devices(QStringLiteral("/dev"));
    QStringList paths;
    for (const QString &name : devices.entryList(
             {QStringLiteral("ttyUSB*"), QStringLiteral("ttyACM*")}, QDir::System, QDir::Name)) {
        paths << devices.filePath(name);
    }
    return paths;
}

CardAttempt CardModules::read(const QString &port)
{
    CardAttempt result;
    QString reason;
    const auto read = [&](ModuleConversation &module) { result = readBy(module); };
    if (!visit(port, Clock::now() + m_timeLimit, read, &reason)) {
        return {CardPresence::NoReader, {}, reason};
    }
    return result;
}

bool CardModules::responds(const QString &port, QString *reason)
{
    bool isInOrder = false;
    const auto ask = [&](ModuleConversation &module) {
        ModuleAnswer answer;
        isInOrder = module.command(moduleStatus, commandTime, succeeded, &answer, reason);
    };
    return visit(port, Clock::now() + m_timeLimit / 2, ask, reason) && isInOrder;
}

QByteArray CardModules::number(const QString &port, QString *reason)
{
    QByteArray result;
    const auto ask = [&](ModuleConversation &module) {
        ModuleAnswer answer;
        if (!module.command(moduleNumber, commandTime, succeeded, &answer, reason)) {
            return;
        }
        if (answer.data.size() == 16) {
            result = numberText(answer.data);
        } else {
            setError(QStringLiteral("its number has %1 bytes").arg(answer.data.size()), reason);
        }
    };
    visit(port, Clock::now() + m_timeLimit / 2, ask, reason);
    return result;
}

void CardModules::forget()
{
    const std::lock_guard<std::timed_mutex> lock(m_mutex);
    m_silent.clear();
}

/**
 * Runs `work` with the module on a port, or with the first that is found.
 * \return false if there is none, with the reason in `reason`
 */
bool CardModules::visit(const QString &port, Clock::time_point deadline, const Work &work,
                        QString *reason)
{
    const std::unique_lock<std::timed_mutex> lock(m_mutex, deadline);
    if (!lock) {
        return setError(QStringLiteral("the ID-card module doesn't respond to another call"),
                        reason);
    }
    const auto module = port.isEmpty() ? find(deadline, reason) : connect(port, deadline, reason);
    if (!module) {
        return false;
    }
    work(*module);
    return true;
}

/// Opens a port and tries its speeds until a module answers.
std::unique_ptr<ModuleConversation> CardModules::connect(const QString &port,
                                                         Clock::time_point deadline, QString *error)
{
    const auto fail = [&](const QString &why) {
        setError(port + QStringLiteral(": ") + why, error);
        return nullptr;
    };
    error->clear();
    auto line = SerialPort::open(port, error);
    if (!line) {
        return fail(*error);
    }
    auto module = std::make_unique<ModuleConversation>(std::move(line), deadline);
    std::vector<int> order(std::begin(speeds), std::end(speeds));
    const QString node = nodeOf(port);
    const auto known = m_speeds.find(node);
    if (known != m_speeds.end()) {
        std::stable_partition(order.begin(), order.end(),
                              [&](int speed) { return speed == known->second; });
    }
    for (const int speed : order) {
        ModuleAnswer answer;
        if (!module->setSpeed(speed, error)) {
            return fail(*error);
        }
        if (module->exchange(moduleStatus, probeTime, &answer, error)) {
            if (known == m_speeds.end() || known->second != speed) {
                logInfo() << "there is an ID-card module on" << port << "at" << speed << "bit/s";
            }
            m_speeds[node] = speed;
            m_found = port;
            return module;
        }
    }
    if (known == m_speeds.end() && Clock::now() < deadline) {
        m_silent.insert(node);
    }
    return fail(
        QStringLiteral("no ID-card module answers at %1 bit/s (%2)").arg(speedList(), *error));
}

/// The module that answered last, or else the first that answers on a port.
std::unique_ptr<ModuleConversation> CardModules::find(Clock::time_point deadline, QString *reason)
{
    QStringList ports = m_ports();
    if (ports.removeOne(m_found)) {
        ports.prepend(m_found);
    }
    QStringList reasons;
    for (const QString &port : qAsConst(ports)) {
        if (m_silent.count(nodeOf(port)) > 0) {
            reasons << port + QStringLiteral(": no ID-card module answered before");
        } else if (Clock::now() > deadline) {
            reasons << port + QStringLiteral(": not tried yet");
        } else if (auto module = connect(port, deadline, reason)) {
            return module;
        } else {
            reasons << *reason;
        }
    }
    setError(ports.isEmpty()
                 ? QStringLiteral("there is no serial port (/dev/ttyUSB*, /dev/ttyACM*) "
                                  "for an ID-card module")
                 : reasons.join(QStringLiteral("; ")),
             reason);
    return nullptr;
}

} // namespace portable
