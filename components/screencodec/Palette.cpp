// The palette transform of ScreenCodec.dll (layout in Palette.h).
#include "Palette.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace screencodec {
namespace {

constexpr std::size_t kColourValues = 65536;
constexpr std::uint32_t kGenerations = 1u << 24;

inline std::uint16_t Load(const std::uint8_t* p) noexcept {
    std::uint16_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline void Store(std::uint8_t* p, std::uint16_t v) noexcept {
    std::memcpy(p, &v, sizeof v);
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
        Store(p, distinct_[j]);
    Store(p, static_cast<std::uint16_t>(k));
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

    // One pass for the usual band of at most 256 colours: indices in order of appearance.
    if (++generation_ == kGenerations) {
        std::memset(slots_.get(), 0, kColourValues * sizeof(std::uint32_t));
        generation_ = 1;
    }
    std::uint32_t* slots = slots_.get();
    const std::uint32_t tag = generation_ << 8;
    std::size_t colours = 0;
    std::size_t i = 0;
    for (; i < pixels; ++i) {
        const std::uint16_t v = Load(px + 2 * i);
        std::uint32_t slot = slots[v];
        if ((slot & ~0xFFu) != tag) {
            if (colours == kMaxColours)
                break;
            slots[v] = slot = tag | static_cast<std::uint32_t>(colours);
            distinct[colours++] = v;
        }
        ix[i] = static_cast<std::uint8_t>(slot);
    }
    if (i == pixels)
        return Finish(filter, data, cb, out, colours, 0);

    // More colours: the 255 most frequent ones get indices and the rest escape.
    std::uint32_t* counts = counts_.get();
    colours = 0;
    for (i = 0; i < pixels; ++i) {
        const std::uint16_t v = Load(px + 2 * i);
        if (counts[v]++ == 0)
            distinct[colours++] = v;
    }
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
    for (i = 0; i < pixels; ++i) {
        const std::uint16_t v = Load(px + 2 * i);
        const std::uint8_t x = index[v];
        ix[i] = x;
        if (x == kEscape) {
            Store(escape, v);
            escape += 2;
        }
    }
    return Finish(filter, data, cb, out, k, escapes);
}

bool Palette::Restore(const PixelFilter& filter, std::uint8_t* transformed,
                      std::size_t transformedLength, std::uint8_t* out, std::size_t cb) noexcept {
    const std::size_t offset = filter.offset();
    if (cb < offset + 2 || transformedLength < offset + 2)
        return false;
    const std::size_t pixels = (cb - offset) / 2;
    const std::size_t odd = (cb - offset) % 2;
    const std::size_t k = Load(transformed + transformedLength - 2);
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
        lut[j] = j < k ? Load(table + 2 * j) : 0x20000;
    if (k < kMaxColours)
        lut[kEscape] = 0x10000;

    std::memcpy(out, transformed, offset);
    const std::uint8_t* ix = transformed + offset;
    std::uint8_t* px = out + offset;
    if (odd)
        out[cb - 1] = table[-1];
    if (escapes == 0) {
        // The usual band: one branch-free pass; an index without a colour shows in `seen`.
        // Four pixels per step, written as two words: the flags above bit 15 of the second
        // pixel of each word shift out, so they are gathered in `seen` first.
        std::uint32_t seen = 0;
        std::size_t i = 0;
        for (; i + 4 <= pixels; i += 4) {
            std::uint32_t four;
            std::memcpy(&four, ix + i, sizeof four);
            const std::uint32_t c0 = lut[four & 0xFF], c1 = lut[(four >> 8) & 0xFF],
                                c2 = lut[(four >> 16) & 0xFF], c3 = lut[four >> 24];
            seen |= c0 | c1 | c2 | c3;
            const std::uint32_t low = (c0 & 0xFFFFu) | (c1 << 16);
            const std::uint32_t high = (c2 & 0xFFFFu) | (c3 << 16);
            std::memcpy(px + 2 * i, &low, sizeof low);
            std::memcpy(px + 2 * i + 4, &high, sizeof high);
        }
        for (; i < pixels; ++i) {
            const std::uint32_t c = lut[ix[i]];
            seen |= c;
            Store(px + 2 * i, static_cast<std::uint16_t>(c));
        }
        return seen < 0x10000;
    }
    std::size_t used = 0;
    for (std::size_t i = 0; i < pixels; ++i) {
        const std::uint32_t c = lut[ix[i]];
        if (c < 0x10000) {
            Store(px + 2 * i, static_cast<std::uint16_t>(c));
        } else {
            if (c != 0x10000 || used == escapes)
                return false;
            std::memcpy(px + 2 * i, escape + 2 * used++, 2);
        }
    }
    return used == escapes;
}

}  // namespace screencodec
