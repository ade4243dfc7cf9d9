// SPDX-License-Identifier: MIT
/// \file Smart cards for tests: their responses to commands, in hexadecimal digits.
#pragma once

#include <QByteArray>

#include <map>
#include <utility>

/// Responses by command; to any other command: not found.
class CardScript
{
public:
    /// The same card with this response.
    CardScript with(const QByteArray &command, const QByteArray &response) const
    {
        CardScript script(*this);
        script.m_responses[command] = response;
        return script;
    }

    QByteArray responseTo(const QByteArray &command) const
    {
        const auto found = m_responses.find(command.toHex().toUpper());
        return QByteArray::fromHex(found == m_responses.end() ? QByteArray("6A82") : found->second);
    }

private:
    std::map<QByteArray, QByteArray> m_responses;
};

inline QByteArray hexByte(int value)
{
    return QByteArray::number(value, 16).rightJustified(2, '0').toUpper();
}

/// A BER-TLV object; its length takes one byte, or two with 81 first.
inline QByteArray tlv(const QByteArray &tag, const QByteArray &value)
{
    const int length = value.size() / 2;
    return tag + (length < 128 ? "" : "81") + hexByte(length) + value;
}

inline QByteArray selectCommand(const QByteArray &name)
{
    return "00A40400" + hexByte(name.size() / 2) + name + "00";
}

inline QByteArray recordCommand(int number, int file)
{
    return "00B2" + hexByte(number) + hexByte(file << 3 | 4) + "00";
}

const QByteArray contactDirectory = "315041592E5359532E4444463031"; // 1PAY.SYS.DDF01
const QByteArray contactlessDirectory = "325041592E5359532E4444463031"; // 2PAY.SYS.DDF01
const QByteArray socialApplication = "7378312E73682EC9E7BBE1B1A3D5CF";
const QByteArray debit = "A000000333010101";
const QByteArray credit = "A000000333010102";

/// A contact bank card with two applications: 0000001234567897, until 2031-07.
inline CardScript contactBankCard()
{
    return CardScript()
        .with("FFCA000000", "04A1B2C3D4E5809000")
        .with(selectCommand(contactDirectory), tlv("6F", tlv("A5", "880101")) + "9000")
        .with(recordCommand(1, 1),
              tlv("70",
                  tlv("61", tlv("4F", credit) + "870102") + tlv("61", tlv("4F", debit) + "870101"))
                  + "9000")
        .with(selectCommand(debit), // its PDOL asks for 4, 6 and 2 bytes
              tlv("6F", tlv("84", debit) + tlv("A5", tlv("9F38", "9F66049F02069F1A02"))) + "9000")
        .with("80A800000E830C26000000000000000000000000", "800A7C0010010200180101009000")
        .with(recordCommand(1, 2), tlv("70", "9F1F00") + "9000")
        .with(recordCommand(1, 3),
              tlv("70", tlv("5A", "0000001234567897") + "5F2403310731") + "9000");
}

/// A contactless one, whose processing options have it all: track 2, 19 digits, until 2029-02.
inline CardScript contactlessBankCard()
{
    return CardScript()
        .with("FFCA000000", "00112233449000")
        .with(selectCommand(contactlessDirectory),
              tlv("6F", tlv("A5", tlv("BF0C", tlv("61", tlv("4F", credit))))) + "9000")
        .with(selectCommand(credit), tlv("6F", tlv("84", credit)) + "9000")
        .with("80A8000002830000",
              tlv("77", "82022000" + tlv("57", "0000001234567890123D29022010000000000F")) + "9000");
}

inline QByteArray socialRecordCommand(int number)
{
    return "00B2" + hexByte(number) + "0000";
}

/// A social security card of 李明, who is 000000199512310016.
inline CardScript socialSecurityCard()
{
    const std::pair<int, QByteArray> records[] = {
        {0x05, "20210304"},
        {0x06, "20310304"},
        {0x07, QByteArray("X12345678").toHex()},
        {0x08, QByteArray("000000199512310016").toHex()},
        {0x09, "C0EEC3F7" + QByteArray(26 * 2, '0')},
        {0x0A, "31"},
        {0x0B, "02"},
        {0x0D, "19951231"},
    };
    CardScript card = CardScript()
                          .with(selectCommand(socialApplication), "9000")
                          .with("00A4000002EF0500", "9000")
                          .with("00A4000002EF0600", "9000");
    for (const auto &[number, value] : records) {
        card = card.with(socialRecordCommand(number), tlv(hexByte(number), value) + "9000");
    }
    return card;
}
