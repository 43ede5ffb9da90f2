#include "StatusText.h"

#include <cstring>

namespace host::hidl {

std::string statusText(android::status_t status) {
    switch (status) {
        case android::OK:
            return "OK";
        case android::DEAD_OBJECT:
            return "DEAD_OBJECT";
        case android::FAILED_TRANSACTION:
            return "FAILED_TRANSACTION";
        case android::UNKNOWN_TRANSACTION:
            return "UNKNOWN_TRANSACTION";
        case android::UNKNOWN_ERROR:
            return "UNKNOWN_ERROR";
        case android::BAD_TYPE:
            return "BAD_TYPE";
        case android::BAD_VALUE:
            return "BAD_VALUE";
        case android::NOT_ENOUGH_DATA:
            return "NOT_ENOUGH_DATA";
        case android::UNEXPECTED_NULL:
            return "UNEXPECTED_NULL";
        case android::NO_INIT:
            return "NO_INIT";
        default:
            break;
    }
    std::string text = "error " + std::to_string(status);
    if (status < 0 && status > -4096) {  // what the kernel can report
        text += std::string(" (") + strerror(-status) + ")";
    }
    return text;
}

}  // namespace host::hidl
