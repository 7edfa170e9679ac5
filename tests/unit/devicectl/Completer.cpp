// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tools/devicectl/Completion.h"

// Stands for devicectl under a shell that completes: answers as the program does, of a daemon whose volumes
// are called as the file "labels" of the working folder says, one on a line. Any other line is noted in the
// file "lines", word by word.

namespace {

std::vector<std::string> linesOf(const char* path) {
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> ask(devicectl::LiveKind kind) {
    switch (kind) {
        case devicectl::LiveKind::kVolumes:
            return linesOf("labels");
        case devicectl::LiveKind::kUsbNumbers:
            return {"05ac:12a8", "46f4:0001"};
        default:
            return {};
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() < 3 || words[0] != "complete") {
        std::ofstream file("lines", std::ios::app);
        for (const std::string& word : words) {
            file << word << '\n';
        }
        file << "end of the line\n";
        return 0;
    }
    const std::vector<std::string> replies =
        words[1] == "bash"
            ? devicectl::bashReplies(words[2], words[3], ask)
            : devicectl::candidatesFor({words.begin() + 2, words.end() - 1}, words.back(), ask);
    for (const std::string& reply : replies) {
        std::puts(reply.c_str());
    }
    return 0;
}
