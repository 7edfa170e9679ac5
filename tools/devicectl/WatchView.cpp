// SPDX-License-Identifier: Apache-2.0
#include "tools/devicectl/WatchView.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "tools/devicectl/RenderParts.h"
#include "tools/devicectl/Text.h"

namespace devicectl {

namespace {

using UsbNode = WatchModel::UsbNode;
using Volume = WatchModel::Volume;

constexpr size_t kBarWidth = 20;
/** From these on a volume counts as filling up, and as full. */
constexpr unsigned kFillingPercent = 80;
constexpr unsigned kFullPercent = 95;
/** Title and keys. */
constexpr size_t kFixedRows = 2;

/** A piece of a line in one color. */
struct Piece {
    std::string text;
    Color color = Color::kNone;
};

using Line = std::vector<Piece>;

/** The first @p width characters. */
std::string clipped(const std::string& text, size_t width) {
    size_t end = 0;
    for (size_t seen = 0; end < text.size(); ++end) {
        const bool begins = (static_cast<unsigned char>(text[end]) & 0xC0) != 0x80;
        if (begins && seen++ == width) {
            break;
        }
    }
    return text.substr(0, end);
}

std::string paintedLine(Format format, const Line& line, size_t columns) {
    std::string text;
    for (const Piece& piece : line) {
        const std::string shown = clipped(piece.text, columns);
        text += painted(format, piece.color, shown);
        columns -= std::min(columns, widthOf(shown));
    }
    return text;
}

/** @p text with blanks up to @p width characters. */
std::string column(const std::string& text, size_t width) {
    return text + std::string(width - std::min(width, widthOf(text)) + 2, ' ');
}

template <typename Row, typename TextOf>
size_t widest(const std::vector<Row>& rows, const TextOf& textOf) {
    size_t width = 0;
    for (const Row& row : rows) {
        width = std::max(width, widthOf(textOf(row)));
    }
    return width;
}

void addHeading(std::vector<Line>* lines, const std::string& text) {
    if (!lines->empty()) {
        lines->push_back({});
    }
    lines->push_back({{text, Color::kHeading}});
}

void addServices(std::vector<Line>* lines, const WatchModel& model) {
    addHeading(lines, "Services");
    const size_t width = widest(model.services, [](const ServiceState& service) { return service.name; });
    for (const ServiceState& service : model.services) {
        lines->push_back(
            {{"  " + column(service.name, width)}, {lifeText(service.life), colorOf(service.life)}});
    }
}

void addControllers(std::vector<Line>* lines, const WatchModel& model) {
    addHeading(lines, "Controllers");
    if (model.controllers.empty()) {
        lines->push_back({{"  -", Color::kDim}});
    }
    for (const WatchModel::Controller& controller : model.controllers) {
        lines->push_back({{"  " + column(controller.name, 6)},
                          {controller.isPresent ? "present  " : "absent   ",
                           controller.isPresent ? Color::kGood : Color::kDim},
                          {escapeLine(controller.path)}});
    }
}

bool isAbove(const UsbNode& hub, const UsbNode& node) {
    return hub.bus == node.bus && !hub.ports.empty() && hub.ports.size() < node.ports.size() &&
           std::equal(hub.ports.begin(), hub.ports.end(), node.ports.begin());
}

/** By bus and place, those without a place last: each node behind the hub that it hangs on. */
std::vector<UsbNode> inTreeOrder(std::vector<UsbNode> nodes) {
    std::sort(nodes.begin(), nodes.end(), [](const UsbNode& left, const UsbNode& right) {
        if (left.bus != right.bus) {
            return left.bus < right.bus;
        }
        if (left.ports.empty() != right.ports.empty()) {
            return right.ports.empty();
        }
        return left.ports != right.ports ? left.ports < right.ports : left.id < right.id;
    });
    return nodes;
}

std::string placeText(const UsbNode& node) {
    std::string text;
    for (const uint32_t port : node.ports) {
        text += (text.empty() ? "port " : ".") + std::to_string(port);
    }
    return text.empty() ? "port ?" : text;
}

void addUsb(std::vector<Line>* lines, const WatchModel& model) {
    addHeading(lines, "USB");
    if (model.usb.empty()) {
        lines->push_back({{"  -", Color::kDim}});
    }
    const std::vector<UsbNode> nodes = inTreeOrder(model.usb);
    for (size_t i = 0; i < nodes.size(); ++i) {
        const UsbNode& node = nodes[i];
        if (i == 0 || nodes[i - 1].bus != node.bus) {
            lines->push_back({{"  bus " + std::to_string(node.bus)}});
        }
        const auto depth = std::count_if(nodes.begin(), nodes.end(),
                                         [&node](const UsbNode& hub) { return isAbove(hub, node); });
        lines->push_back(
            {{std::string(4 + 2 * static_cast<size_t>(depth), ' ')},
             {placeText(node), Color::kDim},
             {"  " + node.number + "  "},
             {node.name, node.isHub ? Color::kDim : Color::kNone},
             {"  id " + std::to_string(node.id) + ", " + std::to_string(node.milliamperes) + " mA",
              Color::kDim}});
    }
}

unsigned percentOf(const WatchModel::Usage& usage) {
    // In floating point: the product of two sizes has no room in 64 bits.
    const double share =
        usage.total > 0 ? static_cast<double>(usage.used) / static_cast<double>(usage.total) : 0;
    return static_cast<unsigned>(std::lround(std::clamp(share, 0.0, 1.0) * 100));
}

Line usageOf(const std::optional<WatchModel::Usage>& usage) {
    if (!usage) {
        return {{"not mounted", Color::kWait}};
    }
    const unsigned percent = percentOf(*usage);
    const Color color = percent >= kFullPercent      ? Color::kBad
                        : percent >= kFillingPercent ? Color::kWait
                                                     : Color::kGood;
    const size_t filled = (percent * kBarWidth + 50) / 100;
    std::array<char, 16> number{};
    std::snprintf(number.data(), number.size(), "%3u%%", percent);
    return {{"["},
            {std::string(filled, '#'), color},
            {std::string(kBarWidth - filled, '.') + "] " + number.data() + "  " + sizeText(usage->used) +
             " of " + sizeText(usage->total)}};
}

void addVolumes(std::vector<Line>* lines, const WatchModel& model) {
    addHeading(lines, "Volumes");
    if (model.volumes.empty()) {
        lines->push_back({{"  -", Color::kDim}});
    }
    const auto shown = [](const std::string& text) {
        return text.empty() || text == "unknown" ? "-" : escapeLine(text);
    };
    const size_t name = widest(model.volumes, [&](const Volume& volume) { return shown(volume.name); });
    const size_t format = widest(model.volumes, [&](const Volume& volume) { return shown(volume.format); });
    const size_t path = widest(model.volumes, [&](const Volume& volume) { return shown(volume.accessPath); });
    for (const Volume& volume : model.volumes) {
        Line line{{"  " + column(shown(volume.name), name) + column(shown(volume.format), format) +
                   column(shown(volume.accessPath), path)}};
        const Line usage = usageOf(volume.usage);
        line.insert(line.end(), usage.begin(), usage.end());
        // What comes from the medium stands last: whatever its width, it moves nothing.
        line.push_back({"  " + shown(volume.label)});
        lines->push_back(std::move(line));
    }
}

std::vector<Line> contentOf(const WatchModel& model) {
    std::vector<Line> lines;
    addServices(&lines, model);
    addControllers(&lines, model);
    addUsb(&lines, model);
    addVolumes(&lines, model);
    return lines;
}

size_t roomFor(size_t rows) {
    return rows > kFixedRows ? rows - kFixedRows : 0;
}

size_t lastFirst(size_t lines, size_t rows) {
    return lines - std::min(lines, roomFor(rows));
}

}  // namespace

std::vector<std::string> renderWatch(Format format, const WatchModel& model, const WatchWindow& window) {
    const std::vector<Line> content = contentOf(model);
    const size_t room = roomFor(window.rows);
    const size_t first = std::min(window.first, lastFirst(content.size(), window.rows));
    const size_t end = std::min(content.size(), first + room);

    std::vector<Line> lines;
    Line title{{"devicectl watch", Color::kHeading}, {"  " + window.clock}};
    if (window.silentSeconds > 0) {
        title.push_back({"  no answer for " + std::to_string(window.silentSeconds) + " s", Color::kBad});
    }
    lines.push_back(std::move(title));
    lines.insert(lines.end(), content.begin() + static_cast<ptrdiff_t>(first),
                 content.begin() + static_cast<ptrdiff_t>(end));
    const size_t hidden = content.size() - (end - first);
    lines.push_back({{"q quits", Color::kDim},
                     {hidden > 0 ? "  j, k and arrows scroll; " + std::to_string(hidden) + " more lines" : "",
                      Color::kDim}});

    std::vector<std::string> text;
    for (size_t i = 0; i < std::min(lines.size(), window.rows); ++i) {
        text.push_back(paintedLine(format, lines[i], window.columns));
    }
    return text;
}

size_t lastFirstLine(const WatchModel& model, size_t rows) {
    return lastFirst(contentOf(model).size(), rows);
}

std::string sizeText(uint64_t bytes) {
    constexpr std::array kUnits{"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    auto value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 1024 && unit + 1 < kUnits.size()) {
        value /= 1024;
        ++unit;
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), unit == 0 || value >= 100 ? "%.0f %s" : "%.1f %s", value,
                  kUnits[unit]);
    return text.data();
}

}  // namespace devicectl
