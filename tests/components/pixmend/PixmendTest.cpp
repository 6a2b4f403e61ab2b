// Pixmend.dll's converters, called through the DLL the way the desktop image calls them:
// every output pixel is compared with a reference written from the 5-5-5 definition (5 high
// bits of each channel, bit 15 zero), and bytes behind the output must stay untouched.
#include <windows.h>

#include <array>
#include <cstdint>
#include <ostream>
#include <string>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Pixmend.h"

namespace {

using Converter = UINT(WINAPI*)(const void*, void*, UINT);

const std::uint8_t kGuard = 0xA5;
const std::size_t kGuardBytes = 64;

struct Format {
    const char* name;
    Converter convert;
    unsigned sourceBytes;  // per pixel
};

void PrintTo(const Format& f, std::ostream* os) {
    *os << "from " << f.name;
}

const Format kFormats[] = {
    {"32", ConvertRow32To555, 4},
    {"24", ConvertRow24To555, 3},
    {"565", ConvertRow565To555, 2},
};

std::uint16_t Reference555(unsigned r8, unsigned g8, unsigned b8) {
    return static_cast<std::uint16_t>(((r8 >> 3) << 10) | ((g8 >> 3) << 5) | (b8 >> 3));
}

// The reference reads one source pixel of any format.
std::uint16_t ReferencePixel(const Format& f, const std::uint8_t* p) {
    if (f.sourceBytes == 2) {
        const unsigned v = p[0] | (p[1] << 8);
        const unsigned r5 = v >> 11, g6 = (v >> 5) & 63, b5 = v & 31;
        return static_cast<std::uint16_t>((r5 << 10) | ((g6 >> 1) << 5) | b5);
    }
    return Reference555(p[2], p[1], p[0]);
}

// Converts source (all of it, whatever its length) from srcOffset bytes into a buffer, to
// dstOffset bytes into another with guard bytes on both sides of what the converter may write,
// and checks pixels and guards. Rows start anywhere in an image: no alignment is promised.
void ConvertAndCheck(const Format& f, const std::vector<std::uint8_t>& source,
                     std::size_t srcOffset = 0, std::size_t dstOffset = 0) {
    const std::size_t pixels = source.size() / f.sourceBytes;
    std::vector<std::uint8_t> src(srcOffset, 0x5A);
    src.insert(src.end(), source.begin(), source.end());
    std::vector<std::uint8_t> dest(dstOffset + 2 * pixels + kGuardBytes, kGuard);
    f.convert(src.data() + srcOffset, dest.data() + dstOffset, static_cast<UINT>(source.size()));
    for (std::size_t i = 0; i < pixels; ++i) {
        const std::uint8_t* out = &dest[dstOffset + 2 * i];
        const std::uint16_t got = static_cast<std::uint16_t>(out[0] | (out[1] << 8));
        const std::uint16_t want = ReferencePixel(f, &source[i * f.sourceBytes]);
        ASSERT_EQ(want, got) << f.name << " pixel " << i << " of " << pixels;
        ASSERT_EQ(0, got & 0x8000) << f.name;
    }
    const std::size_t written = dstOffset + 2 * pixels;
    for (std::size_t i = 0; i < dest.size(); ++i) {
        if (i >= dstOffset && i < written)
            continue;
        ASSERT_EQ(kGuard, dest[i]) << f.name << " wrote byte " << i << " for " << source.size()
                                   << " source bytes at " << srcOffset << "/" << dstOffset;
    }
}

std::vector<std::uint8_t> RandomBytes(std::mt19937& rng, std::size_t n) {
    std::vector<std::uint8_t> v(n);
    for (auto& b : v)
        b = static_cast<std::uint8_t>(rng());
    return v;
}

// Channel values that probe every bit: the extremes, each single bit, each single bit clear,
// and the values either side of every 5-bit step.
std::vector<unsigned> ProbeValues(unsigned bits) {
    const unsigned max = (1u << bits) - 1;
    std::vector<unsigned> v = {0, max};
    for (unsigned b = 0; b < bits; ++b) {
        v.push_back(1u << b);
        v.push_back(max & ~(1u << b));
    }
    return v;
}

std::vector<std::uint8_t> PackPixels(const Format& f,
                                     const std::vector<std::array<unsigned, 3>>& rgb) {
    std::vector<std::uint8_t> row;
    for (const auto& c : rgb) {
        if (f.sourceBytes == 2) {
            const unsigned v = (c[0] << 11) | (c[1] << 5) | c[2];
            row.push_back(static_cast<std::uint8_t>(v));
            row.push_back(static_cast<std::uint8_t>(v >> 8));
        } else {
            row.push_back(static_cast<std::uint8_t>(c[2]));
            row.push_back(static_cast<std::uint8_t>(c[1]));
            row.push_back(static_cast<std::uint8_t>(c[0]));
            // The unused byte of a 32-bit pixel must not leak into the result.
            if (f.sourceBytes == 4)
                row.push_back(static_cast<std::uint8_t>(0xFF ^ c[1]));
        }
    }
    return row;
}

// A caller that converts before PixmendInit still gets exact rows (the DLL then runs its portable
// kernels; in a process of its own this case is the only one that reaches them).
TEST(PixmendBeforeInit, ConvertersAreAlreadyExact) {
    std::mt19937 rng(5);
    for (const Format& f : kFormats) {
        for (std::size_t len = 0; len <= 70; ++len)
            ConvertAndCheck(f, RandomBytes(rng, len));
        ConvertAndCheck(f, RandomBytes(rng, 3841));
    }
    ASSERT_TRUE(PixmendInit());
    for (const Format& f : kFormats)
        ConvertAndCheck(f, RandomBytes(rng, 3841));
}

class PixmendTest : public testing::TestWithParam<Format> {
  protected:
    void SetUp() override { ASSERT_TRUE(PixmendInit()); }
};

TEST_P(PixmendTest, EveryChannelBitAndExtremeCombination) {
    const Format& f = GetParam();
    const bool is565 = f.sourceBytes == 2;
    std::vector<std::array<unsigned, 3>> pixels;
    const auto red = ProbeValues(is565 ? 5 : 8);
    const auto green = ProbeValues(is565 ? 6 : 8);
    const auto blue = ProbeValues(is565 ? 5 : 8);
    // One channel probed while the others sit at either extreme.
    for (unsigned other : {0u, 1u}) {
        const unsigned rMax = other ? red[1] : 0, gMax = other ? green[1] : 0,
                       bMax = other ? blue[1] : 0;
        for (unsigned r : red)
            pixels.push_back({r, gMax, bMax});
        for (unsigned g : green)
            pixels.push_back({rMax, g, bMax});
        for (unsigned b : blue)
            pixels.push_back({rMax, gMax, b});
    }
    // All eight combinations of extremes.
    for (unsigned m = 0; m < 8; ++m)
        pixels.push_back({m & 1 ? red[1] : 0, m & 2 ? green[1] : 0, m & 4 ? blue[1] : 0});
    ConvertAndCheck(f, PackPixels(f, pixels));

    // The same pixels one at a time reach the short-row path too.
    for (const auto& p : pixels)
        ConvertAndCheck(f, PackPixels(f, {p}));
}

TEST_P(PixmendTest, RandomRowsOfManyLengthsStopAtTheLastWholePixel) {
    const Format& f = GetParam();
    std::mt19937 rng(1234 + f.sourceBytes);
    for (std::size_t len = 0; len <= 200; ++len)
        ConvertAndCheck(f, RandomBytes(rng, len));
    for (std::size_t len : {1021u, 3839u, 3840u, 5760u, 7680u, 7683u, 65537u})
        ConvertAndCheck(f, RandomBytes(rng, len));
}

// Rows start anywhere in the image: the converters must not need aligned pointers.
TEST_P(PixmendTest, UnalignedSourceAndDestination) {
    std::mt19937 rng(99);
    for (std::size_t srcOffset = 0; srcOffset < 4; ++srcOffset)
        for (std::size_t dstOffset = 0; dstOffset < 4; ++dstOffset)
            ConvertAndCheck(GetParam(), RandomBytes(rng, 1000 + srcOffset), srcOffset, dstOffset);
}

INSTANTIATE_TEST_SUITE_P(Converters, PixmendTest, testing::ValuesIn(kFormats),
                         [](const testing::TestParamInfo<Format>& info) {
                             return std::string("From") + info.param.name;
                         });

}  // namespace
