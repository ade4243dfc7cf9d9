// SPDX-License-Identifier: MIT
#include "portable/base/failure.h"
#include "portable/base/filereader.h"
#include "portable/base/inputlimits.h"
#include "portable/base/texts.h"
#include "portable/system/transfermodule.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QMimeDatabase>
#include <QRegularExpression>
#include <QTextCodec>
#include <curl/curl.h>

#include <array>
#include <memory>

namespace portable {

namespace {

constexpr int maxRedirects = 5;

struct FreeHandle
{
    void operator()(CURL *handle) const { curl_easy_cleanup(handle); }
};
struct FreeForm
{
    void operator()(curl_mime *form) const { curl_mime_free(form); }
};
struct FreeHeaders
{
    void operator()(curl_slist *headers) const { curl_slist_free_all(headers); }
};

/// Decodes a response by the charset in its header; UTF-8 when there is none.
QString decoded(const QByteArray &answer, const char *contentType)
{
    static const QRegularExpression form(QStringLiteral("charset\\s*=\\s*\"?([^\\s;\"]+)"),
                                         QRegularExpression::CaseInsensitiveOption);
    const QString charset = form.match(QString::fromLatin1(contentType)).captured(1);
    const QTextCodec *codec = QTextCodec::codecForName(charset.toLatin1());
    return codec ? codec->toUnicode(answer) : QString::fromUtf8(answer);
}

/// One upload: curl's handle with its input and the response.
class Transfer
{
public:
    Transfer(const UploadRequest &request, const UploadLimits &limits, const base::Clock &clock)
        : m_handle(curl_easy_init())
        , m_form(curl_mime_init(m_handle.get()))
        , m_headers(curl_slist_append(nullptr, "Expect:")) // some servers never send "100 Continue"
        , m_limits(limits)
        , m_clock(clock)
        , m_end(clock.now() + limits.total)
    {
        if (!isReady()) {
            return;
        }
        m_hasFile =
            m_file.open(request.file, limits::uploadedFile, &m_fileError) && fillForm(request);
        setUp();
    }

    bool isReady() const { return m_handle && m_form && m_headers; }

    /// Whether the file was opened; it is read during the transfer.
    bool hasFile() const { return m_hasFile; }
    const QString &fileError() const { return m_fileError; }

    /// Sends the form to a URL. \return false, with the reason, when there is no response
    bool post(const QUrl &address, QString *error)
    {
        m_answer.clear();
        m_headerBytes = 0;
        m_error.fill('\0');
        m_transferred = 0;
        m_lastProgress = m_clock.now();
        const auto left = m_end - m_lastProgress;
        if (left <= left.zero()) {
            *error = QStringLiteral("timed out after its redirections");
            return false;
        }
        // At least 1: with 0 there would be no limit.
        set(CURLOPT_TIMEOUT_MS, long(std::chrono::ceil<std::chrono::milliseconds>(left).count()));
        m_abortReason.clear();
        set(CURLOPT_URL, address.toEncoded().constData());
        const CURLcode code = curl_easy_perform(m_handle.get());
        if (code == CURLE_WRITE_ERROR && m_headerBytes > m_limits.headerBytes) {
            *error = QStringLiteral("the answer's headers are longer than %1 bytes")
                         .arg(m_limits.headerBytes);
        } else if (code == CURLE_WRITE_ERROR) {
            *error = QStringLiteral("the answer is longer than %1 bytes").arg(m_limits.answerBytes);
        } else if (code == CURLE_ABORTED_BY_CALLBACK) {
            *error = m_abortReason;
        } else if (code != CURLE_OK) {
            const char *detail = m_error.front() ? m_error.data() : curl_easy_strerror(code);
            *error = QString::fromUtf8(detail).simplified();
        }
        return code == CURLE_OK;
    }

    int status() const
    {
        long status = 0;
        curl_easy_getinfo(m_handle.get(), CURLINFO_RESPONSE_CODE, &status);
        return int(status);
    }

    /// Where the response redirects to; empty when it doesn't.
    QUrl redirection() const { return QUrl::fromEncoded(QByteArray(info(CURLINFO_REDIRECT_URL))); }

    QString answer() const { return decoded(m_answer, info(CURLINFO_CONTENT_TYPE)); }

private:
    template <class Value> void set(CURLoption option, Value value)
    {
        curl_easy_setopt(m_handle.get(), option, value);
    }

    const char *info(CURLINFO which) const
    {
        const char *text = nullptr;
        curl_easy_getinfo(m_handle.get(), which, &text);
        return text;
    }

    bool fillForm(const UploadRequest &request)
    {
        for (const auto &[key, value] : request.fields) {
            const QByteArray bytes = value.toUtf8();
            curl_mimepart *part = addPart(key);
            curl_mime_data(part, bytes.constData(), size_t(bytes.size()));
        }
        const QString field = request.fileField;
        curl_mimepart *part = addPart(field.isEmpty() ? QStringLiteral("file") : field);
        // Not by its name: another file may have it by then.
        const bool hasFile = curl_mime_data_cb(part, m_file.size(), &Transfer::readFile,
                                               &Transfer::seekFile, nullptr, this)
            == CURLE_OK;
        const QString name = QFileInfo(request.file).fileName();
        curl_mime_filename(part, name.toUtf8().constData());
        curl_mime_type(part, typeOfFile(name).toUtf8().constData());
        return hasFile;
    }

    /// Its media type, by its name or else by its beginning.
    QString typeOfFile(const QString &name)
    {
        QByteArray beginning(4096, '\0');
        QString unused;
        const qint64 size = m_file.read(beginning.data(), beginning.size(), &unused);
        beginning.resize(int(qMax<qint64>(size, 0)));
        m_file.rewind();
        return QMimeDatabase().mimeTypeForFileNameAndData(name, beginning).name();
    }

    static size_t readFile(char *buffer, size_t, size_t size, void *self)
    {
        auto *transfer = static_cast<Transfer *>(self);
        const qint64 count = transfer->m_file.read(buffer, qint64(size), &transfer->m_fileError);
        return count < 0 ? CURL_READFUNC_ABORT : size_t(count);
    }

    /// Curl goes back to the beginning when it sends the form again.
    static int seekFile(void *self, curl_off_t offset, int origin)
    {
        auto *transfer = static_cast<Transfer *>(self);
        const bool isBeginning = offset == 0 && origin == SEEK_SET;
        return isBeginning && transfer->m_file.rewind() ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
    }

    curl_mimepart *addPart(const QString &name)
    {
        curl_mimepart *part = curl_mime_addpart(m_form.get());
        curl_mime_name(part, name.toUtf8().constData());
        return part;
    }

    void setUp()
    {
        set(CURLOPT_MIMEPOST, m_form.get());
        set(CURLOPT_HTTPHEADER, m_headers.get());
        set(CURLOPT_USERAGENT, "doccamera"); // some firewalls refuse requests without one
#if LIBCURL_VERSION_NUM >= 0x075500
        set(CURLOPT_PROTOCOLS_STR, "http,https");
#else
        set(CURLOPT_PROTOCOLS, long(CURLPROTO_HTTP | CURLPROTO_HTTPS));
#endif
        set(CURLOPT_SSL_VERIFYPEER, 1L);
        set(CURLOPT_SSL_VERIFYHOST, 2L);
        set(CURLOPT_FOLLOWLOCATION, 0L); // see upload()
        set(CURLOPT_NOSIGNAL, 1L); // signals don't work with threads
        set(CURLOPT_CONNECTTIMEOUT_MS, long(m_limits.connect.count()));
        set(CURLOPT_ERRORBUFFER, m_error.data());
        set(CURLOPT_WRITEFUNCTION, &Transfer::receive);
        set(CURLOPT_WRITEDATA, this);
        set(CURLOPT_HEADERFUNCTION, &Transfer::receiveHeader);
        set(CURLOPT_HEADERDATA, this);
        set(CURLOPT_XFERINFOFUNCTION, &Transfer::shouldAbort);
        set(CURLOPT_XFERINFODATA, this);
        set(CURLOPT_NOPROGRESS, 0L);
    }

    static size_t receive(const char *data, size_t, size_t size, void *self)
    {
        auto *transfer = static_cast<Transfer *>(self);
        if (size > size_t(transfer->m_limits.answerBytes - transfer->m_answer.size())) {
            return 0;
        }
        transfer->m_answer.append(data, int(size));
        return size;
    }

    static size_t receiveHeader(const char *, size_t, size_t size, void *self)
    {
        auto *transfer = static_cast<Transfer *>(self);
        transfer->m_headerBytes += qint64(size);
        return transfer->m_headerBytes > transfer->m_limits.headerBytes ? 0 : size;
    }

    /// Called by curl at least once a second.
    static int shouldAbort(void *self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent)
    {
        auto *transfer = static_cast<Transfer *>(self);
        transfer->checkProgress(received + sent);
        return transfer->m_abortReason.isEmpty() ? 0 : 1;
    }

    /// curl's own limit averages the speed over several seconds.
    void checkProgress(curl_off_t transferred)
    {
        if (transferred != m_transferred) {
            m_transferred = transferred;
            m_lastProgress = m_clock.now();
        }
        if (QCoreApplication::closingDown()) { // which waits for the threads of Qt's pool
            m_abortReason = QStringLiteral("aborted because the program ends");
        } else if (m_clock.now() - m_lastProgress >= m_limits.stall) {
            m_abortReason =
                QStringLiteral("nothing was sent or received for %1 s").arg(m_limits.stall.count());
        }
    }

    const std::unique_ptr<CURL, FreeHandle> m_handle;
    const std::unique_ptr<curl_mime, FreeForm> m_form;
    const std::unique_ptr<curl_slist, FreeHeaders> m_headers;
    const UploadLimits m_limits;
    const base::Clock &m_clock;
    const base::Clock::TimePoint m_end; // of all its requests
    RegularFile m_file;
    QString m_fileError;
    bool m_hasFile = false;
    QByteArray m_answer;
    qint64 m_headerBytes = 0;
    std::array<char, CURL_ERROR_SIZE> m_error{};
    curl_off_t m_transferred = 0; // bytes of this request and its response
    base::Clock::TimePoint m_lastProgress;
    QString m_abortReason; // empty while it goes on
};

/// Whether the same request may be repeated at the new location (RFC 9110, 15.4).
bool isRepeatableRedirect(int status)
{
    return status == 301 || status == 307 || status == 308;
}

QString refusal(int status, const QUrl &redirection)
{
    const QString text = QStringLiteral("the server answered with HTTP status %1").arg(status);
    return redirection.isEmpty()
        ? text
        : text + QStringLiteral(", redirecting to ") + uploadLabel(redirection);
}

/**
 * Follows redirections itself because curl turns some into a GET without the file. 302 and 303 are
 * not followed: they may lead to a result page or to a login.
 */
UploadResult run(Transfer &transfer, QUrl address)
{
    UploadResult result;
    for (int redirects = 0; transfer.post(address, &result.error); ++redirects) {
        const int status = transfer.status();
        const QUrl redirection = transfer.redirection();
        if (isRepeatableRedirect(status) && redirects < maxRedirects
            && mayFollowRedirection(address, redirection)) {
            address = redirection;
            continue;
        }
        result.accepted = status >= 200 && status < 300;
        result.answer = transfer.answer();
        if (!result.accepted) {
            result.error = refusal(status, redirection);
        }
        break;
    }
    return result;
}

} // namespace

UploadResult uploadByCurl(const UploadRequest &request, const UploadLimits &limits,
                          const base::Clock &clock)
{
    static const bool isInitialized = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    UploadResult result;
    Transfer transfer(request, limits, clock);
    if (!isInitialized || !transfer.isReady()) {
        result.error = QStringLiteral("libcurl failed to initialize");
        return result;
    }
    if (!transfer.hasFile()) {
        result.error = transfer.fileError();
        return result;
    }
    result = run(transfer, request.address);
    if (result.accepted && request.removeFile) {
        QFile sent(request.file);
        if (!sent.remove()) {
            logWarning() << logText(request.file)
                         << "was uploaded, but can't be removed:" << sent.errorString();
        }
    }
    return result;
}

} // namespace portable
