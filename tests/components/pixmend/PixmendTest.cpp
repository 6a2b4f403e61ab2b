// Pixmend.dll's converters through its exports: every output pixel against the 5-5-5 definition
// (5 high bits per channel, bit 15 zero), with guard bytes on both sides of the output.
#include <windows.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "contracts/Pixmend.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Format {
    const char* name;
    UINT(WINAPI* convert)(const void*, void*, UINT);
    unsigned sourceBytes;  // per pixel
};

const Format kFormats[] = {
    {"32", ConvertRow32To555, 4}, {"24", ConvertRow24To555, 3}, {"565", ConvertRow565To555, 2}};

std::uint16_t Reference(const Format& f, const std::uint8_t* p) {
    if (f.sourceBytes == 2) {
        const unsigned v = p[0] | (p[1] << 8);
        return static_cast<std::uint16_t>(((v >> 11) << 10) | (((v >> 6) & 31) << 5) | (v & 31));
    }
    return static_cast<std::uint16_t>(((p[2] >> 3) << 10) | ((p[1] >> 3) << 5) | (p[0] >> 3));
}

// Converts source from srcOffset bytes into a buffer to dstOffset bytes into another: rows
// start anywhere in an image.
void ConvertAndCheck(const Format& f, const Bytes& source, std::size_t srcOffset = 0,
                     std::size_t dstOffset = 0) {
    const std::uint8_t kGuard = 0xA5;
    const std::size_t pixels = source.size() / f.sourceBytes;
    Bytes src(srcOffset, 0x5A);
    src.insert(src.end(), source.begin(), source.end());
    Bytes dest(dstOffset + 2 * pixels + 64, kGuard);
    f.convert(src.data() + srcOffset, dest.data() + dstOffset, static_cast<UINT>(source.size()));
    for (std::size_t i = 0; i < dest.size(); ++i) {
        const std::size_t pixel = (i - dstOffset) / 2;
        if (i < dstOffset || pixel >= pixels) {
            ASSERT_EQ(kGuard, dest[i]) << "byte " << i << " of " << source.size() << " at "
                                       << srcOffset << "/" << dstOffset;
        } else if ((i - dstOffset) % 2 == 0) {
            ASSERT_EQ(Reference(f, &source[pixel * f.sourceBytes]), dest[i] | (dest[i + 1] << 8))
                << "pixel " << pixel << " of " << pixels;
        }
    }
}

// Random rows (the unused byte of 32 bits too: it must not leak) of every short length (every
// tail of the wide kernels; a partial last pixel is left) and a long one, at every alignment of
// source and output.
void CheckEverything(const Format& f) {
    SCOPED_TRACE(f.name);
    Bytes row;
    std::mt19937 rng(1234 + f.sourceBytes);
    for (std::size_t len = 0; len <= 201; ++len) {
        row.resize(len < 201 ? len : 65537);
        for (auto& b : row)
            b = static_cast<std::uint8_t>(rng());
        ConvertAndCheck(f, row, len % 4, len / 4 % 4);
    }
}

class Pixmend : public testing::TestWithParam<Format> {};

// Before PixmendInit the DLL runs its portable kernels, after it the SSE2 ones: both must be
// exact. CTest runs each case in a process of its own, so the first half sees the portable ones.
TEST_P(Pixmend, ExactBeforeAndAfterInit) {
    CheckEverything(GetParam());
    ASSERT_TRUE(PixmendInit());
    CheckEverything(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Converters, Pixmend, testing::ValuesIn(kFormats),
                         [](const testing::TestParamInfo<Format>& info) {
                             return std::string("From") + info.param.name;
                         });

}  // namespace
