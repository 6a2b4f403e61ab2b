// The screen corpus of the benchmarks: screenshots of the virtual display showing real programs
// (a word processor with a document, an editor with source code, a grid of figures, a web-like
// page, a photograph in a viewer), made once by make_screen_corpus (scripts/make-corpus) and
// kept in bench/corpus as 5-5-5 pixels, as the capture sends them. Each file is one zstd frame
// holding u32 width, u32 height (little-endian), then width x height 16-bit pixels, top row
// first; the build copies them beside the benchmarks.
#pragma once

#include <windows.h>
#include <zstd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "wincom/File.h"

namespace vantrel::bench {

struct Screenshot {
    std::string name;
    int width = 0, height = 0;
    std::vector<std::uint16_t> pixels;  // 5-5-5, top-down, no padding
};

inline constexpr const char* kCorpusScenes[] = {"document", "code", "spreadsheet", "web page",
                                                "photo"};

// The file of a scene: "web page" -> "web-page.555.zst".
inline std::string CorpusFileName(std::string scene) {
    for (char& c : scene)
        c = c == ' ' ? '-' : c;
    return scene + ".555.zst";
}

inline std::vector<std::uint8_t> EncodeScreenshot(const Screenshot& shot, int level) {
    std::vector<std::uint8_t> raw(8 + 2 * shot.pixels.size());
    const std::uint32_t size[2] = {static_cast<std::uint32_t>(shot.width),
                                   static_cast<std::uint32_t>(shot.height)};
    std::memcpy(raw.data(), size, 8);
    std::memcpy(raw.data() + 8, shot.pixels.data(), 2 * shot.pixels.size());
    std::vector<std::uint8_t> packed(ZSTD_compressBound(raw.size()));
    const std::size_t n =
        ZSTD_compress(packed.data(), packed.size(), raw.data(), raw.size(), level);
    packed.resize(ZSTD_isError(n) ? 0 : n);
    return packed;
}

// False when the bytes are not a whole screenshot.
inline bool DecodeScreenshot(const std::vector<std::uint8_t>& packed, Screenshot* shot) {
    const unsigned long long raw = ZSTD_getFrameContentSize(packed.data(), packed.size());
    if (raw == ZSTD_CONTENTSIZE_ERROR || raw == ZSTD_CONTENTSIZE_UNKNOWN || raw < 8 ||
        raw > (64u << 20))
        return false;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(raw));
    if (ZSTD_decompress(bytes.data(), bytes.size(), packed.data(), packed.size()) != bytes.size())
        return false;
    std::uint32_t size[2];
    std::memcpy(size, bytes.data(), 8);
    if (size[0] == 0 || size[1] == 0 ||
        8 + 2ull * size[0] * size[1] != static_cast<unsigned long long>(raw))
        return false;
    shot->width = static_cast<int>(size[0]);
    shot->height = static_cast<int>(size[1]);
    shot->pixels.resize(static_cast<std::size_t>(size[0]) * size[1]);
    std::memcpy(shot->pixels.data(), bytes.data() + 8, 2 * shot->pixels.size());
    return true;
}

// The folder of this program, with a trailing backslash.
inline std::string ProgramFolder() {
    char path[MAX_PATH] = {};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string folder(path);
    return folder.substr(0, folder.find_last_of("\\/") + 1);
}

// Every scene of the corpus beside this program (corpus\...); empty when one is missing.
inline std::vector<Screenshot> LoadScreenCorpus() {
    std::vector<Screenshot> shots;
    for (const char* scene : kCorpusScenes) {
        File file;
        std::uint64_t length = 0;
        if (!file.Open((ProgramFolder() + "corpus\\" + CorpusFileName(scene)).c_str(),
                       File::modeRead | File::shareDenyWrite) ||
            !file.Length(&length) || length > (16u << 20))
            return {};
        std::vector<std::uint8_t> packed(static_cast<std::size_t>(length));
        Screenshot shot;
        shot.name = scene;
        if (!file.ReadExact(packed.data(), static_cast<std::uint32_t>(length)) ||
            !DecodeScreenshot(packed, &shot))
            return {};
        shots.push_back(std::move(shot));
    }
    return shots;
}

}  // namespace vantrel::bench
