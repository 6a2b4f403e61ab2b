#include "render/ViewGeometry.h"

#include <algorithm>

namespace vantrel::view {
namespace {

// Truncation toward zero, as a C cast does.
LONG Scale(LONG v, double factor) noexcept {
    return static_cast<LONG>(v * factor);
}

struct Span {
    LONG lo = 0, hi = 0;
};

// One axis of the following view: client length w, picture length iw, pointer at c, current
// source span cur. Fills the source and destination spans.
void FollowAxis(LONG w, LONG iw, LONG c, Span cur, Span* src, Span* dst) noexcept {
    if (w < iw) {
        dst->lo = 0;
        dst->hi = w;
        LONG l = c - kFollowMargin;
        LONG r;
        if (l >= cur.lo) {
            r = c + kFollowMargin;
            if (r <= cur.hi) {
                l = cur.lo;
                r = cur.lo + w;
            } else {
                l = r - w;
            }
        } else {
            r = l + w;
        }
        if (l < 0) {
            l = 0;
            r = w;
        }
        if (r > iw) {
            r = iw;
            l = iw - w;
        }
        *src = {l, r};
    } else {
        *src = {0, iw};
        dst->lo = (w - iw) / 2;
        dst->hi = dst->lo + iw;
    }
}

// One axis of the scrolled view: when needed the whole client length at the current position,
// pulled back inside the picture; otherwise the whole picture centred in the bar-less length.
void ScrollAxis(bool need, LONG clientLen, LONG areaLen, LONG iw, LONG cur, Span* src,
                Span* dst) noexcept {
    if (need) {
        dst->lo = 0;
        dst->hi = clientLen;
        LONG l = cur;
        if (l + clientLen > iw)
            l = iw - clientLen;
        *src = {l, l + clientLen};
    } else {
        *src = {0, iw};
        dst->lo = (areaLen - iw) / 2;
        dst->hi = dst->lo + iw;
    }
}

}  // namespace

RECT OrDefault(const RECT& r, const RECT& fallback) noexcept {
    return IsRectEmpty(&r) ? fallback : r;
}

RECT ClientToSource(const RECT& in, const RECT& S, const RECT& D) noexcept {
    RECT out{};
    if (Width(D) == 0 || Height(D) == 0)
        return out;
    const double sx = static_cast<double>(Width(S)) / Width(D);
    const double sy = static_cast<double>(Height(S)) / Height(D);
    const RECT mapped{Scale(in.left - D.left, sx) + S.left, Scale(in.top - D.top, sy) + S.top,
                      Scale(in.right - D.left, sx) + S.left, Scale(in.bottom - D.top, sy) + S.top};
    IntersectRect(&out, &mapped, &S);
    return out;
}

RECT SourceToClient(const RECT& in, const RECT& S, const RECT& D) noexcept {
    RECT out{};
    if (Width(S) == 0 || Height(S) == 0)
        return out;
    const double sx = static_cast<double>(Width(D)) / Width(S);
    const double sy = static_cast<double>(Height(D)) / Height(S);
    const RECT mapped{Scale(in.left - S.left, sx) + D.left, Scale(in.top - S.top, sy) + D.top,
                      Scale(in.right - S.left, sx) + D.left, Scale(in.bottom - S.top, sy) + D.top};
    IntersectRect(&out, &mapped, &D);
    return out;
}

Placement FollowLayout(SIZE client, SIZE image, const RECT& source, POINT cursor) noexcept {
    Span sx, dx, sy, dy;
    FollowAxis(client.cx, image.cx, cursor.x, {source.left, source.right}, &sx, &dx);
    FollowAxis(client.cy, image.cy, cursor.y, {source.top, source.bottom}, &sy, &dy);
    return {{sx.lo, sy.lo, sx.hi, sy.hi}, {dx.lo, dy.lo, dx.hi, dy.hi}};
}

ScrollPlacement ScrollLayout(const RECT& client, SIZE image, const RECT& source, bool hasH,
                             bool hasV, SIZE bars) noexcept {
    RECT area = client;
    if (hasV)
        area.right += bars.cx;
    if (hasH)
        area.bottom += bars.cy;
    bool needH = Width(area) < image.cx;
    bool needV = Height(area) < image.cy;
    // A bar that is needed takes its room; that may make the other one needed too.
    if (needH)
        area.bottom = client.bottom;
    if (needV)
        area.right = client.right;
    needH = needH || Width(area) < image.cx;
    needV = needV || Height(area) < image.cy;

    Span sx, dx, sy, dy;
    if (needH)
        area = client;
    ScrollAxis(needH, Width(client), Width(area), image.cx, source.left, &sx, &dx);
    if (needV)
        area = client;
    ScrollAxis(needV, Height(client), Height(area), image.cy, source.top, &sy, &dy);
    ScrollPlacement p;
    p.source = {sx.lo, sy.lo, sx.hi, sy.hi};
    p.destination = {dx.lo, dy.lo, dx.hi, dy.hi};
    p.needH = needH;
    p.needV = needV;
    return p;
}

RECT SpanSource(const RECT& source, const RECT& imageRect, int dx, int dy) noexcept {
    RECT r = source;
    OffsetRect(&r, -dx, -dy);
    const LONG w = Width(source), h = Height(source);
    if (r.left < imageRect.left) {
        r.left = imageRect.left;
        r.right = r.left + w;
    }
    if (r.right > imageRect.right) {
        r.right = imageRect.right;
        r.left = r.right - w;
    }
    if (r.top < imageRect.top) {
        r.top = imageRect.top;
        r.bottom = r.top + h;
    }
    if (r.bottom > imageRect.bottom) {
        r.bottom = imageRect.bottom;
        r.top = r.bottom - h;
    }
    return r;
}

bool LocalToDesktop(const RECT& source, const RECT& imageRect, const RECT& client, int x, int y,
                    POINT* out) noexcept {
    if (Width(client) == 0 || Height(client) == 0)
        return false;
    const RECT v = OrDefault(source, imageRect);
    out->x = static_cast<LONG>(static_cast<double>(Width(v)) * x / Width(client)) + source.left;
    out->y = static_cast<LONG>(static_cast<double>(Height(v)) * y / Height(client)) + source.top;
    return true;
}

bool LocalMovesPointer(int mode) noexcept {
    return mode != CMM_REMOTE;
}

bool StreamMovesPointer(int mode, DWORD now, DWORD lastLocalMove, DWORD switchTimeout) noexcept {
    if (mode == CMM_LOCAL)
        return false;
    return !(mode == CMM_SWITCH && now - lastLocalMove <= switchTimeout);
}

int ScrollRequest(int code, int pos, int min, int limit, int page, int thumb) noexcept {
    switch (code) {
        case SB_LINELEFT:
            return pos > min ? pos - 1 : pos;
        case SB_LINERIGHT:
            return pos < limit ? pos + 1 : pos;
        case SB_PAGELEFT:
            return pos > min ? std::max(pos - page, min) : pos;
        case SB_PAGERIGHT:
            return pos < limit ? std::min(pos + page, limit) : pos;
        case SB_THUMBPOSITION:
        case SB_THUMBTRACK:
            return thumb;
        case SB_LEFT:
            return min;
        case SB_RIGHT:
            return limit;
        default:
            return pos;
    }
}

}  // namespace vantrel::view
