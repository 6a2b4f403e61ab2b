// Banded region (see BandedRegion.h). Every operation walks the bands once, top to bottom, and
// writes the result band by band through BandWriter, which keeps the form canonical: spans that
// overlap or touch become one, and a band equal to the one just above it extends that one.
#include "stream/BandedRegion.h"

#include <algorithm>
#include <cstddef>
#include <new>

namespace vantrel {

namespace {

class BandWriter {
  public:
    explicit BandWriter(std::vector<RECT>& out) noexcept : out_(out) {}

    void Begin(LONG top, LONG bottom) noexcept {
        top_ = top;
        bottom_ = bottom;
        band_ = out_.size();
    }
    // Spans come in order of their left edge.
    void Span(LONG left, LONG right) {
        if (out_.size() > band_ && left <= out_.back().right) {
            out_.back().right = std::max(out_.back().right, right);
            return;
        }
        out_.push_back(RECT{left, top_, right, bottom_});
    }
    void End() noexcept {
        const std::size_t count = out_.size() - band_;
        if (count == 0)
            return;
        if (band_ > previous_ && band_ - previous_ == count && out_[previous_].bottom == top_ &&
            std::equal(out_.begin() + previous_, out_.begin() + band_, out_.begin() + band_,
                       [](const RECT& a, const RECT& b) {
                           return a.left == b.left && a.right == b.right;
                       })) {
            for (std::size_t i = previous_; i < band_; ++i)
                out_[i].bottom = bottom_;
            out_.resize(band_);
            return;
        }
        previous_ = band_;
    }

  private:
    std::vector<RECT>& out_;
    LONG top_ = 0;
    LONG bottom_ = 0;
    std::size_t band_ = 0;      // first rectangle of the band being written
    std::size_t previous_ = 0;  // first rectangle of the band written before it
};

// The end of the band that starts at rects[first].
std::size_t BandEnd(const std::vector<RECT>& rects, std::size_t first) noexcept {
    std::size_t end = first + 1;
    while (end < rects.size() && rects[end].top == rects[first].top)
        ++end;
    return end;
}

}  // namespace

RECT BandedRegion::Bounds() const noexcept {
    if (rects_.empty())
        return RECT{0, 0, 0, 0};
    RECT box{rects_.front().left, rects_.front().top, rects_.front().right, rects_.back().bottom};
    for (const RECT& r : rects_) {
        box.left = std::min(box.left, r.left);
        box.right = std::max(box.right, r.right);
    }
    return box;
}

bool BandedRegion::Union(const RECT& r) noexcept {
    if (r.right <= r.left || r.bottom <= r.top)
        return true;
    try {
        scratch_.clear();
        BandWriter w(scratch_);
        auto copy = [&w](const RECT* first, const RECT* last, LONG top, LONG bottom) {
            w.Begin(top, bottom);
            for (; first != last; ++first)
                w.Span(first->left, first->right);
            w.End();
        };
        auto merge = [&w, &r](const RECT* first, const RECT* last, LONG top, LONG bottom) {
            w.Begin(top, bottom);
            bool added = false;
            for (; first != last; ++first) {
                if (!added && r.left <= first->left) {
                    w.Span(r.left, r.right);
                    added = true;
                }
                w.Span(first->left, first->right);
            }
            if (!added)
                w.Span(r.left, r.right);
            w.End();
        };
        // Rows of r from `free` down lie in no band seen so far.
        LONG free = r.top;
        for (std::size_t b = 0; b < rects_.size();) {
            const std::size_t e = BandEnd(rects_, b);
            const RECT* first = rects_.data() + b;
            const RECT* last = rects_.data() + e;
            const LONG top = first->top, bottom = first->bottom;
            if (free < std::min(top, r.bottom))
                merge(last, last, free, std::min(top, r.bottom));
            if (top < r.top)
                copy(first, last, top, std::min(bottom, r.top));
            if (std::max(top, r.top) < std::min(bottom, r.bottom))
                merge(first, last, std::max(top, r.top), std::min(bottom, r.bottom));
            if (std::max(top, r.bottom) < bottom)
                copy(first, last, std::max(top, r.bottom), bottom);
            free = std::max(free, bottom);
            b = e;
        }
        if (free < r.bottom)
            merge(nullptr, nullptr, free, r.bottom);
    } catch (const std::bad_alloc&) {
        return false;
    }
    rects_.swap(scratch_);
    return true;
}

bool BandedRegion::Intersection(const RECT& clip, BandedRegion* out) const noexcept {
    out->rects_.clear();
    if (clip.right <= clip.left || clip.bottom <= clip.top)
        return true;
    try {
        BandWriter w(out->rects_);
        for (std::size_t b = 0; b < rects_.size();) {
            const std::size_t e = BandEnd(rects_, b);
            const LONG top = std::max(rects_[b].top, clip.top);
            const LONG bottom = std::min(rects_[b].bottom, clip.bottom);
            if (top < bottom) {
                w.Begin(top, bottom);
                for (std::size_t i = b; i < e; ++i) {
                    const LONG left = std::max(rects_[i].left, clip.left);
                    const LONG right = std::min(rects_[i].right, clip.right);
                    if (left < right)
                        w.Span(left, right);
                }
                w.End();
            }
            b = e;
        }
    } catch (const std::bad_alloc&) {
        out->rects_.clear();
        return false;
    }
    return true;
}

}  // namespace vantrel
