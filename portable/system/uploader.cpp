// SPDX-License-Identifier: MIT
#include "portable/system/uploader.h"

#include "portable/system/transfermodule.h"

namespace portable {

UploadResult upload(const UploadRequest &request, const UploadLimits &limits,
                    const base::Clock &clock)
{
    UploadResult result;
    const TransferModule *module = transferModule(&result.error);
    return module ? module->upload(request, limits, clock) : result;
}

} // namespace portable
