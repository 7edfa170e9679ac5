// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Follows the volumes on sticks and cards, counts the media files of each, and forgets a volume that goes.
 *
 * Shows: connecting to one service only; work that takes its time inside a call-back; reading below the
 * access path of a volume whose medium may be pulled out at any moment; that a restart of the daemon needs no
 * code.
 */
#include <client/Client.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>

#include "Program.h"

namespace {

struct Index {
    int audio = 0;
    int video = 0;
    int pictures = 0;
};

int* counterFor(Index& index, std::string extension) {
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char letter) { return static_cast<char>(tolower(letter)); });
    static const std::map<std::string, int Index::*> sKinds = {
        {".mp3", &Index::audio},    {".flac", &Index::audio},    {".ogg", &Index::audio},
        {".mp4", &Index::video},    {".mkv", &Index::video},     {".avi", &Index::video},
        {".jpg", &Index::pictures}, {".jpeg", &Index::pictures}, {".png", &Index::pictures},
    };
    const auto kind = sKinds.find(extension);
    return kind != sKinds.end() ? &(index.*kind->second) : nullptr;
}

/** Walks the volume. A medium that is pulled out meanwhile ends the walk with an error, and nothing else. */
Index indexOf(const std::string& folder) {
    namespace fs = std::filesystem;
    Index index;
    std::error_code error;
    fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied, error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
        int* const counter = counterFor(index, entry->path().extension().string());
        std::error_code ignored;
        if (counter != nullptr && entry->is_regular_file(ignored)) {
            ++*counter;
        }
    }
    return index;
}

/** The index of every volume that is there. Call-backs come one after the other: it needs no lock. */
class Library {
  public:
    void add(const volume::VolumeItf& volume) {
        const std::string name = volume.getName().string();
        const std::string folder = volume.getAccessPath().string();
        if (folder == "unknown") {
            printf("%s: no files can be read from this volume\n", name.c_str());
            return;
        }
        const Index index = indexOf(folder);
        mIndexes[name] = index;
        printf("%s: %d audio, %d video, %d pictures in %s\n", name.c_str(), index.audio, index.video,
               index.pictures, folder.c_str());
    }

    void forget(const volume::VolumeItf& volume) {
        const std::string name = volume.getName().string();
        if (mIndexes.erase(name) != 0) {
            printf("%s: forgotten, %zu left\n", name.c_str(), mIndexes.size());
        }
    }

  private:
    std::map<std::string, Index> mIndexes;
};

}  // namespace

int main(int argc, char** argv) {
    const Program program(argc, argv, "Counts the media files of each stick and card.");

    Library library;
    client::Events events;
    events.volumeAdded = [&library](const auto& volume) { library.add(*volume); };
    events.volumeRemoved = [&library](const auto& volume) { library.forget(*volume); };

    client::Options options;
    options.services = static_cast<uint32_t>(client::Service::kVolumeManager);

    client::Client client;
    if (client.start(events, options) != android::OK) {
        fprintf(stderr, "the client cannot be started\n");
        return 1;
    }
    program.runUntilEnd();
    // The client goes first, and with it the call-backs that use the library.
    return 0;
}
