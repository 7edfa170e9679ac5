// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/devicectl/WatchModel.h"

namespace devicectl {

/** What is seen of a model. A value. */
struct WatchWindow {
    size_t rows = 24;            ///< of the terminal
    size_t columns = 80;         ///< of the terminal
    size_t first = 0;            ///< line of the content that stands topmost; one too far is taken back
    unsigned silentSeconds = 0;  ///< since the model was true last; 0 while it is
    std::string clock;           ///< time of day, for the title
};

/**
 * The lines of the picture, at most rows of them, none wider than columns, without their ends. The first is
 * the title, the last says which keys there are; what lies between scrolls. Pure, any thread.
 */
std::vector<std::string> renderWatch(Format format, const WatchModel& model, const WatchWindow& window);

/** The greatest WatchWindow::first that shows something more. Pure, any thread. */
size_t lastFirstLine(const WatchModel& model, size_t rows);

/** Bytes for a reader: "512 B", "1.5 GiB". Pure, any thread. */
std::string sizeText(uint64_t bytes);

}  // namespace devicectl
