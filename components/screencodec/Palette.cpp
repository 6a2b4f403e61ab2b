// The palette transform of ScreenCodec.dll (layout in Palette.h).
#include "Palette.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "wincom/Unaligned.h"

namespace screencodec {
namespace {

constexpr std::size_t kColourValues = 65536;
constexpr std::uint32_t kGenerations = 1u << 24;

using vantrel::LoadU16;
using vantrel::LoadU32;
using vantrel::StoreU16;
using vantrel::StoreU32;

// Whether the eight pixels at p all equal `value`: most of a screen's background comes in such
// blocks, which then need no table lookup per pixel.
inline bool RepeatsEight(const std::uint8_t* p, std::uint16_t value) noexcept {
    const std::uint32_t pair = value * 0x10001u;
    std::uint32_t w[4];
    std::memcpy(w, p, sizeof w);
    return ((w[0] ^ pair) | (w[1] ^ pair) | (w[2] ^ pair) | (w[3] ^ pair)) == 0;
}

// Whether the eight indices at p all equal `index`; whether one of them is the escape; eight
// pixels of one colour.
inline bool RepeatsIndex(const std::uint8_t* p, std::uint8_t index) noexcept {
    const std::uint32_t same = index * 0x01010101u;
    std::uint32_t w[2];
    std::memcpy(w, p, sizeof w);
    return ((w[0] ^ same) | (w[1] ^ same)) == 0;
}

inline bool HasEscape(const std::uint8_t* p) noexcept {
    std::uint32_t w[2];
    std::memcpy(w, p, sizeof w);
    // An escape byte (0xFF) is a zero byte of the complement.
    const auto hasFF = [](std::uint32_t x) { return ((~x - 0x01010101u) & x & 0x80808080u) != 0; };
    return hasFF(w[0]) || hasFF(w[1]);
}

inline void FillEight(std::uint8_t* p, std::uint16_t colour) noexcept {
    const std::uint32_t pair = colour * 0x10001u;
    const std::uint32_t eight[4] = {pair, pair, pair, pair};
    std::memcpy(p, eight, sizeof eight);
}

// Visits the pixels from `first` in blocks of eight: a block that repeats the pixel before it goes
// to run(i) when run takes it, every other pixel to each(i, v). each returns false to stop; the
// result is the index of the pixel it stopped at, or `pixels`.
template <class Each, class Run>
std::size_t VisitPixels(const std::uint8_t* px, std::size_t first, std::size_t pixels, Each each,
                        Run run) noexcept {
    std::size_t i = first;
    while (i < pixels) {
        if (i > 0 && i + 8 <= pixels && RepeatsEight(px + 2 * i, LoadU16(px + 2 * i - 2)) &&
            run(i)) {
            i += 8;
            continue;
        }
        for (const std::size_t stop = i + 8 < pixels ? i + 8 : pixels; i < stop; ++i)
            if (!each(i, LoadU16(px + 2 * i)))
                return i;
    }
    return pixels;
}

}  // namespace

bool Palette::Reserve() noexcept {
    if (!slots_)
        slots_.reset(new (std::nothrow) std::uint32_t[kColourValues]());
    if (!counts_)
        counts_.reset(new (std::nothrow) std::uint32_t[kColourValues]());
    if (!index_)
        index_.reset(new (std::nothrow) std::uint8_t[kColourValues]);
    if (!distinct_)
        distinct_.reset(new (std::nothrow) std::uint16_t[kColourValues]);
    return slots_ && counts_ && index_ && distinct_;
}

std::size_t Palette::Finish(const PixelFilter& filter, const std::uint8_t* data, std::size_t cb,
                            std::uint8_t* out, std::size_t k, std::size_t escapes) const noexcept {
    const std::size_t offset = filter.offset();
    const std::size_t pixels = (cb - offset) / 2;
    std::uint8_t* p = out + offset + pixels;
    filter.FilterRun(p, p, escapes);
    p += 2 * escapes;
    if ((cb - offset) % 2)
        *p++ = data[cb - 1];
    for (std::size_t j = 0; j < k; ++j, p += 2)
        StoreU16(p, distinct_[j]);
    StoreU16(p, static_cast<std::uint16_t>(k));
    return static_cast<std::size_t>(p + 2 - out);
}

std::size_t Palette::Apply(const PixelFilter& filter, const std::uint8_t* data, std::size_t cb,
                           std::uint8_t* out, std::size_t maxEscapeShare) noexcept {
    const std::size_t offset = filter.offset();
    if (cb < offset + 2 || !Reserve())
        return 0;
    const std::size_t pixels = (cb - offset) / 2;
    const std::uint8_t* px = data + offset;
    std::uint8_t* ix = out + offset;
    std::uint16_t* distinct = distinct_.get();
    std::memcpy(out, data, offset);

    // One pass for the usual band of at most 256 colours: indices in order of appearance. It does
    // not count them: a counter bumped per pixel is a chain of stores to one place along a run,
    // and only a band with more colours needs the counts.
    if (++generation_ == kGenerations) {
        std::memset(slots_.get(), 0, kColourValues * sizeof(std::uint32_t));
        generation_ = 1;
    }
    std::uint32_t* slots = slots_.get();
    std::uint32_t* counts = counts_.get();
    const std::uint32_t tag = generation_ << 8;
    std::size_t colours = 0;
    const std::size_t stopped = VisitPixels(
        px, 0, pixels,
        [&](std::size_t at, std::uint16_t v) {
            std::uint32_t slot = slots[v];
            if ((slot & ~0xFFu) != tag) {
                if (colours == kMaxColours)
                    return false;
                slots[v] = slot = tag | static_cast<std::uint32_t>(colours);
                distinct[colours++] = v;
            }
            ix[at] = static_cast<std::uint8_t>(slot);
            return true;
        },
        [&](std::size_t at) {
            std::memset(ix + at, ix[at - 1], 8);
            return true;
        });
    if (stopped == pixels)
        return Finish(filter, data, cb, out, colours, 0);

    // More colours: the 255 most frequent ones get indices and the rest escape. The pixels before
    // the stop are counted from their indices, in four tallies that a run does not serialise.
    std::uint32_t tally[4][kMaxColours] = {};
    std::size_t at = 0;
    for (; at + 4 <= stopped; at += 4) {
        ++tally[0][ix[at]];
        ++tally[1][ix[at + 1]];
        ++tally[2][ix[at + 2]];
        ++tally[3][ix[at + 3]];
    }
    for (; at < stopped; ++at)
        ++tally[0][ix[at]];
    for (std::size_t j = 0; j < colours; ++j)
        counts[distinct[j]] = tally[0][j] + tally[1][j] + tally[2][j] + tally[3][j];
    VisitPixels(
        px, stopped, pixels,
        [&](std::size_t, std::uint16_t v) {
            if (counts[v]++ == 0)
                distinct[colours++] = v;
            return true;
        },
        [&](std::size_t at) {
            counts[LoadU16(px + 2 * at - 2)] += 8;
            return true;
        });
    const std::size_t k = kMaxColours - 1;
    std::nth_element(distinct, distinct + k, distinct + colours,
                     [counts](std::uint16_t a, std::uint16_t b) { return counts[a] > counts[b]; });
    std::size_t kept = 0;
    for (std::size_t j = 0; j < k; ++j)
        kept += counts[distinct[j]];
    std::uint8_t* index = index_.get();
    for (std::size_t j = 0; j < colours; ++j) {
        index[distinct[j]] = j < k ? static_cast<std::uint8_t>(j) : kEscape;
        counts[distinct[j]] = 0;
    }
    const std::size_t escapes = pixels - kept;
    if (escapes * maxEscapeShare > pixels)
        return 0;
    std::uint8_t* escape = ix + pixels;
    VisitPixels(
        px, 0, pixels,
        [&](std::size_t at, std::uint16_t v) {
            const std::uint8_t x = index[v];
            ix[at] = x;
            if (x == kEscape) {
                StoreU16(escape, v);
                escape += 2;
            }
            return true;
        },
        [&](std::size_t at) {
            if (ix[at - 1] == kEscape)
                return false;
            std::memset(ix + at, ix[at - 1], 8);
            return true;
        });
    return Finish(filter, data, cb, out, k, escapes);
}

bool Palette::Restore(const PixelFilter& filter, std::uint8_t* transformed,
                      std::size_t transformedLength, std::uint8_t* out, std::size_t cb) noexcept {
    const std::size_t offset = filter.offset();
    if (cb < offset + 2 || transformedLength < offset + 2)
        return false;
    const std::size_t pixels = (cb - offset) / 2;
    const std::size_t odd = (cb - offset) % 2;
    const std::size_t k = LoadU16(transformed + transformedLength - 2);
    if (k < 1 || k > kMaxColours)
        return false;
    const std::size_t fixed = offset + pixels + odd + 2 * k + 2;
    if (transformedLength < fixed)
        return false;
    const std::size_t escapeBytes = transformedLength - fixed;
    if (escapeBytes % 2 || (k == kMaxColours && escapeBytes))
        return false;
    const std::size_t escapes = escapeBytes / 2;
    std::uint8_t* escape = transformed + offset + pixels;
    const std::uint8_t* table = escape + escapeBytes + odd;
    filter.UnfilterRun(escape, escapes);

    // Index -> colour; above 0xFFFF: 0x10000 escape, 0x20000 an index no colour has.
    std::uint32_t lut[kMaxColours];
    for (std::size_t j = 0; j < kMaxColours; ++j)
        lut[j] = j < k ? LoadU16(table + 2 * j) : 0x20000;
    if (k < kMaxColours)
        lut[kEscape] = 0x10000;

    std::memcpy(out, transformed, offset);
    const std::uint8_t* ix = transformed + offset;
    std::uint8_t* px = out + offset;
    if (odd)
        out[cb - 1] = table[-1];
    // Eight indices at a time. Eight that repeat a colour just written are that colour again
    // (the background); eight without an escape are looked up four at a time, written as two
    // words, without a branch: the flag of an index without a colour (above bit 15) is gathered
    // in `seen` before the second pixel of a word shifts it out. Only eight with an escape take
    // the escape stream one pixel at a time.
    std::uint32_t seen = 0;
    std::size_t used = 0;
    const auto four = [&](std::size_t at) {
        const std::uint32_t x = LoadU32(ix + at);
        const std::uint32_t c0 = lut[x & 0xFF], c1 = lut[(x >> 8) & 0xFF],
                            c2 = lut[(x >> 16) & 0xFF], c3 = lut[x >> 24];
        seen |= c0 | c1 | c2 | c3;
        const std::uint32_t low = (c0 & 0xFFFFu) | (c1 << 16);
        const std::uint32_t high = (c2 & 0xFFFFu) | (c3 << 16);
        StoreU32(px + 2 * at, low);
        StoreU32(px + 2 * at + 4, high);
    };
    const auto one = [&](std::size_t at) {
        const std::uint32_t c = lut[ix[at]];
        if (c < 0x10000) {
            StoreU16(px + 2 * at, static_cast<std::uint16_t>(c));
            return true;
        }
        if (c != 0x10000 || used == escapes)
            return false;
        std::memcpy(px + 2 * at, escape + 2 * used++, 2);
        return true;
    };
    std::size_t i = 0;
    for (; i + 8 <= pixels; i += 8) {
        if (i > 0 && lut[ix[i - 1]] < 0x10000 && RepeatsIndex(ix + i, ix[i - 1])) {
            FillEight(px + 2 * i, static_cast<std::uint16_t>(lut[ix[i - 1]]));
        } else if (!HasEscape(ix + i)) {
            four(i);
            four(i + 4);
        } else {
            for (std::size_t j = i; j < i + 8; ++j)
                if (!one(j))
                    return false;
        }
    }
    for (; i < pixels; ++i)
        if (!one(i))
            return false;
    return seen < 0x10000 && used == escapes;
}

}  // namespace screencodec
