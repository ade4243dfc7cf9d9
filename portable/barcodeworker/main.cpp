// SPDX-License-Identifier: MIT
// Reads barcodes for the portable library, in a process of its own: the decoder's assertions and
// endless searches end this process and not the server. Standard input is the socket; without its
// other end this process ends.
#include "portable/barcodeworker/messages.h"
#include "portable/barcodeworker/search.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <iterator>
#include <memory>
#include <string>

using namespace portable;

namespace {

constexpr int socketHandle = STDIN_FILENO;

/// An orphan ends itself after this: the library, which kills late workers, waits 5 s.
constexpr unsigned secondsUntilAlarm = 15;

/// A search of the largest picture, 36 megapixels, takes a quarter of it.
constexpr rlim_t largestData = rlim_t(1) << 30;

#ifdef SANITIZED
constexpr bool isSanitized = true; // shadow memory counts as data
#else
constexpr bool isSanitized = false;
#endif

void limitItself()
{
    const rlimit noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore); // it would hold the picture
    if (!isSanitized) {
        const rlimit data{largestData, largestData};
        ::setrlimit(RLIMIT_DATA, &data);
    }
}

/// \return false when nobody listens any more
bool send(BarcodeReply head, std::string text, std::string bytes = {})
{
    iovec parts[] = {{&head, sizeof head}, {&text[0], text.size()}, {&bytes[0], bytes.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = std::size(parts);
    return sizeof head + text.size() + bytes.size() > largestBarcodeReply
        || ::sendmsg(socketHandle, &message, MSG_NOSIGNAL) >= 0;
}

bool sendFound(const FoundBarcode &code)
{
    BarcodeReply head;
    head.type = BarcodeReply::Found;
    head.format = code.format;
    head.hasEncoding = code.hasEncoding ? 1 : 0;
    head.textSize = std::uint32_t(code.text.size());
    return send(head, code.text, code.bytes);
}

bool sendEnd(BarcodeReply::Type type, const std::string &reason = {})
{
    BarcodeReply head;
    head.type = type;
    head.textSize = std::uint32_t(reason.size());
    return send(head, reason);
}

/// Waits for a request. \return the descriptor of its picture; -1 without one
int receive(BarcodeRequest *request)
{
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    iovec part{request, sizeof *request};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    ssize_t size = 0;
    do {
        size = ::recvmsg(socketHandle, &message, MSG_CMSG_CLOEXEC);
    } while (size < 0 && errno == EINTR);
    const cmsghdr *header = CMSG_FIRSTHDR(&message);
    if (size != ssize_t(sizeof *request) || !header || header->cmsg_type != SCM_RIGHTS
        || header->cmsg_len != CMSG_LEN(sizeof(int))) {
        return -1;
    }
    int file = -1;
    std::memcpy(&file, CMSG_DATA(header), sizeof file);
    return file;
}

/// \return false when nobody listens any more
bool search(const BarcodeRequest &request, int file)
{
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(request.milliseconds);
    const std::size_t size = std::size_t(request.width) * std::size_t(request.height);
    void *memory = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, file, 0);
    ::close(file);
    if (memory == MAP_FAILED) {
        return sendEnd(BarcodeReply::Failed, std::strerror(errno));
    }
    const auto unmap = [size](void *pixels) { ::munmap(pixels, size); };
    const std::unique_ptr<void, decltype(unmap)> pixels(memory, unmap);
    try {
        const cv::Mat grey(request.height, request.width, CV_8U, memory);
        const bool isComplete =
            searchBarcodes(grey, request.kind, request.withDataBar != 0, end, sendFound);
        return sendEnd(isComplete ? BarcodeReply::Done : BarcodeReply::OutOfTime);
    } catch (const std::exception &failure) { // out of memory, or OpenCV's
        return sendEnd(BarcodeReply::Failed, failure.what());
    }
}

} // namespace

int main()
{
    limitItself();
    cv::setNumThreads(1); // leaves the other cores to the preview
    BarcodeRequest request;
    for (int file = receive(&request); file >= 0; file = receive(&request)) {
        ::alarm(secondsUntilAlarm);
        if (!search(request, file)) {
            break;
        }
        ::alarm(0);
    }
    return 0;
}
