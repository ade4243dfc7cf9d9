// SPDX-License-Identifier: MIT
/// \file Smart cards for tests: what they answer to which command, in hexadecimal digits.
#pragma once

#include <QByteArray>

#include <map>
#include <utility>

/// Answers by command; to any other command: not found.
class CardScript
{
public:
    CardScript(std::initializer_list<std::pair<const QByteArray, QByteArray>> answers = {})
        : m_answers(answers)
    {
    }

    void set(const QByteArray &command, const QByteArray &answer) { m_answers[command] = answer; }

    QByteArray answer(const QByteArray &command) const
    {
        const auto found = m_answers.find(command.toHex().toUpper());
        return QByteArray::fromHex(found == m_answers.end() ? QByteArray("6A82") : found->second);
    }

private:
    std::map<QByteArray, QByteArray> m_answers;
};

inline QByteArray hexByte(int value)
{
    return QByteArray::number(value, 16).rightJustified(2, '0').toUpper();
}

/// An object: its tag, the length in one byte or behind 81, its value.
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

/// A bank card with contacts and two applications: 0000001234567897, until 2031-07.
inline CardScript contactBankCard()
{
    return {
        {"FFCA000000", "04A1B2C3D4E5809000"},
        {selectCommand(contactDirectory), tlv("6F", tlv("A5", "880101")) + "9000"},
        {recordCommand(1, 1),
         tlv("70", tlv("61", tlv("4F", credit) + "870102") + tlv("61", tlv("4F", debit) + "870101"))
             + "9000"},
        {selectCommand(debit), // it wants 4, 6 and 2 bytes for a start
         tlv("6F", tlv("84", debit) + tlv("A5", tlv("9F38", "9F66049F02069F1A02"))) + "9000"},
        {"80A800000E830C26000000000000000000000000", "800A7C0010010200180101009000"},
        {recordCommand(1, 2), tlv("70", "9F1F00") + "9000"},
        {recordCommand(1, 3), tlv("70", tlv("5A", "0000001234567897") + "5F2403310731") + "9000"},
    };
}

/// One without contacts, whose start tells all: track 2 with 19 digits, until 2029-02.
inline CardScript contactlessBankCard()
{
    return {
        {"FFCA000000", "00112233449000"},
        {selectCommand(contactlessDirectory),
         tlv("6F", tlv("A5", tlv("BF0C", tlv("61", tlv("4F", credit))))) + "9000"},
        {selectCommand(credit), tlv("6F", tlv("84", credit)) + "9000"},
        {"80A8000002830000",
         tlv("77", "82022000" + tlv("57", "0000001234567890123D29022010000000000F")) + "9000"},
    };
}

/// A social security card of 李明, who is 000000199512310016.
inline CardScript socialSecurityCard()
{
    const auto record = [](int number) { return "00B2" + hexByte(number) + "0000"; };
    const auto text = [](const QByteArray &bytes) { return bytes.toHex().toUpper(); };
    return {
        {selectCommand(socialApplication), "9000"},
        {"00A4000002EF0500", "9000"},
        {"00A4000002EF0600", "9000"},
        {record(0x05), tlv("05", "20210304") + "9000"},
        {record(0x06), tlv("06", "20310304") + "9000"},
        {record(0x07), tlv("07", text("X12345678")) + "9000"},
        {record(0x08), tlv("08", text("000000199512310016")) + "9000"},
        {record(0x09), tlv("09", "C0EEC3F7" + QByteArray(26 * 2, '0')) + "9000"},
        {record(0x0A), tlv("0A", "31") + "9000"},
        {record(0x0B), tlv("0B", "02") + "9000"},
        {record(0x0D), tlv("0D", "19951231") + "9000"},
    };
}
