// SPDX-License-Identifier: MIT
/// \file libjpeg, and what becomes of its errors. For the files that call it.
#pragma once

#include <csetjmp>
#include <cstdio>

// After <cstdio>, which they need.
#include <jerror.h>
#include <jpeglib.h>

namespace portable {

/**
 * Makes libjpeg's errors, and warnings of a damaged picture, jump back instead of ending the
 * process. After setjmp(back) no object with a destructor may be created: the jump skips it.
 */
struct JpegFailure : jpeg_error_mgr
{
    std::jmp_buf back;
    char reason[JMSG_LENGTH_MAX] = {};
    bool toleratesDamage = false; ///< Warnings don't jump, unless the data end too early.

    jpeg_error_mgr *install()
    {
        jpeg_std_error(this);
        error_exit = [](j_common_ptr jpeg) { of(jpeg)->jump(jpeg); };
        emit_message = [](j_common_ptr jpeg, int level) {
            if (level < 0 && of(jpeg)->isFatal(jpeg->err->msg_code)) {
                of(jpeg)->jump(jpeg);
            }
        };
        return this;
    }

private:
    static JpegFailure *of(j_common_ptr jpeg) { return static_cast<JpegFailure *>(jpeg->err); }

    /// Whether a warning means that pixels are wrong, and more so than is tolerated.
    bool isFatal(int code) const
    {
        const bool isHarmless =
            code == JWRN_EXTRANEOUS_DATA || code == JWRN_JFIF_MAJOR || code == JWRN_ADOBE_XFORM;
        return !isHarmless && (!toleratesDamage || code == JWRN_JPEG_EOF);
    }

    [[noreturn]] void jump(j_common_ptr jpeg)
    {
        format_message(jpeg, reason);
        std::longjmp(back, 1);
    }
};

} // namespace portable
