#include "Understanding/Models.h"

namespace keepery::Models {

std::string vision(std::int64_t ramGB) {
    return ramGB >= 16 ? "qwen3.5:4b" : "qwen3.5:2b-q4_K_M";
}

} // namespace keepery::Models
