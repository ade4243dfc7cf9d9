// SPDX-License-Identifier: MIT
//
// Smart cards that answer anything. The first byte says how they are read; the fields are the
// answers, in the order of the commands.
#include "portable/card/apdu.h"
#include "portable/card/emv.h"
#include "portable/card/socialcard.h"
#include "portable/card/tlv.h"
#include "tests/fuzz/fuzztarget.h"
#include "tests/scriptedcard.h"

using namespace portable;

namespace {

enum Way { IsT0 = 1, ContactlessFirst = 2, Social = 4 };

/// Answers with the fields of an input.
class InputConnection : public CardConnection
{
public:
    InputConnection(fuzz::Fields &fields, bool isT0)
        : m_fields(fields)
        , m_isT0(isT0)
    {
    }
    bool isT0() const override { return m_isT0; }
    QByteArray transmit(const QByteArray & /*command*/, QString *error) override
    {
        *error = QStringLiteral("the card was taken");
        return m_fields.part();
    }

private:
    fuzz::Fields &m_fields;
    const bool m_isT0;
};

/// Answers as a script does, and writes the answers down.
class WritingConnection : public CardConnection
{
public:
    explicit WritingConnection(CardScript script)
        : m_script(std::move(script))
    {
    }
    QByteArray transmit(const QByteArray &command, QString * /*error*/) override
    {
        QByteArray answer = m_script.responseTo(command);
        m_written += fuzz::field(answer);
        return answer;
    }
    QByteArray written() const { return m_written; }

private:
    const CardScript m_script;
    QByteArray m_written;
};

void readCard(CardConnection &connection, int way)
{
    CardChannel card(connection, CardChannel::Clock::now() + std::chrono::seconds(5));
    QString error;
    readSerial(card, &error);
    const QJsonObject fields = (way & Social) != 0
        ? readSocialCard(card, &error)
        : readBankCard(card, (way & ContactlessFirst) != 0, &error);
    fuzz::require(fields.isEmpty() || !fields.value(QLatin1String("number")).toString().isEmpty(),
                  "a card that was read has a number");
}

QByteArray seedOf(const CardScript &script, int way)
{
    WritingConnection connection(script);
    readCard(connection, way);
    return QByteArray(1, char(way)) + connection.written();
}

} // namespace

void fuzz::prepare() { }

void fuzz::run(const QByteArray &input)
{
    Fields fields(input);
    const int way = fields.byte();
    InputConnection connection(fields, (way & IsT0) != 0);
    readCard(connection, way);

    for (const quint32 tag : {0x5AU, 0x57U, 0x9F38U, 0x61U}) {
        findAllTlv(input, tag);
    }
    std::vector<DolEntry> entries;
    parseDol(input, &entries);
}

QList<QByteArray> fuzz::seeds()
{
    return {
        seedOf(contactBankCard(), 0),
        seedOf(contactlessBankCard(), ContactlessFirst),
        seedOf(socialSecurityCard(), Social),
    };
}
