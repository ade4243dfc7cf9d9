// SPDX-License-Identifier: MIT
#include "deviceprocess/stub/keptsettings.h"

#include <QtDebug>

namespace deviceprocess {

namespace {

constexpr int longestSetting = 1 << 20; ///< In bytes: more is not kept for a new process.

QByteArray previewKey(FunctionId function)
{
    const bool isFourth = function == FunctionId::bStartPlay4 || function == FunctionId::bStopPlay4;
    return isFourth ? "fourth preview" : "preview";
}

QByteArray settingKey(FunctionId function, FunctionKind kind, const QByteArray &arguments)
{
    QByteArray key = functionName(std::uint32_t(function));
    if (kind == FunctionKind::SettingOf) {
        key += arguments.left(int(sizeof(int)));
    }
    return key;
}

} // namespace

void KeptSettings::noteCall(FunctionId function, FunctionKind kind, const QByteArray &arguments)
{
    if (kind == FunctionKind::Opening || kind == FunctionKind::Closing) {
        // A call that ends the process closes the preview as well.
        forget({function, previewKey(function), {}});
    } else if (kind == FunctionKind::Setting || kind == FunctionKind::SettingOf) {
        const Setting setting{function, settingKey(function, kind, arguments), arguments};
        if (arguments.size() <= longestSetting) {
            replace(setting);
            return;
        }
        forget(setting);
        qWarning("device process: the setting of %s is too long to be repeated",
                 functionName(std::uint32_t(function)));
    }
}

void KeptSettings::noteReply(FunctionId function, FunctionKind kind, const QByteArray &arguments,
                             const Message &reply)
{
    Reader answer(reply);
    if (kind == FunctionKind::Opening && answer.value<bool>()) {
        replace({function, previewKey(function), arguments});
    }
}

void KeptSettings::replace(const Setting &setting)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_settings.remove_if([&](const Setting &one) { return one.key == setting.key; });
    m_settings.push_back(setting);
}

void KeptSettings::forget(const Setting &setting)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_settings.remove_if([&](const Setting &one) { return one.key == setting.key; });
}

std::list<KeptSettings::Setting> KeptSettings::all() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_settings;
}

} // namespace deviceprocess
