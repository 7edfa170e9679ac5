// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/ColorChoice.h"

#include <string_view>

namespace devicectl {

bool usesColor(ColorMode mode, bool isTerminal, const char* noColor, const char* terminal) {
    if (mode != ColorMode::kAuto) {
        return mode == ColorMode::kAlways;
    }
    const bool refused = noColor != nullptr && *noColor != '\0';
    const std::string_view kind = terminal != nullptr ? terminal : "dumb";
    return isTerminal && !refused && kind != "dumb" && !kind.empty();
}

}  // namespace devicectl
