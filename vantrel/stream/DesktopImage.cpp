// DesktopImage: opening and closing the DIB section, row access, palette, logo stamping and the
// pointer overlay.
#include "DesktopImage.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <mutex>
#include <new>

#include "stream/DeskPref.h"
#include "wincom/KernelObjects.h"
#include "wincom/ScreenStrips.h"
#include "contracts/Pixmend.h"
#include "stream/UpdateRegion.h"

namespace vantrel {
namespace {

using Guard = std::lock_guard<CriticalSection>;

LONG ClampToLong(long long v) noexcept {
    return static_cast<LONG>(std::min<long long>(std::max<long long>(v, LONG_MIN), LONG_MAX));
}

long long RowBytes(const RECT& r, int bpp) noexcept {
    return packet::RowBytes(r, static_cast<uint32_t>(bpp));
}

// Copies rows of srcRow bytes into rows padded to 16 bits, the layout CreateIcon reads.
std::unique_ptr<BYTE[]> PadRows(const BYTE* src, UINT srcRow, UINT dstRow, UINT rows) noexcept {
    std::unique_ptr<BYTE[]> out(new (std::nothrow) BYTE[static_cast<size_t>(dstRow) * rows]);
    if (!out)
        return out;
    std::memset(out.get(), 0, static_cast<size_t>(dstRow) * rows);
    for (UINT y = 0; y < rows; ++y)
        std::memcpy(out.get() + static_cast<size_t>(y) * dstRow,
                    src + static_cast<size_t>(y) * srcRow, std::min(srcRow, dstRow));
    return out;
}

DWORD GrabRasterOperation() noexcept {
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof version;
    if (GetVersionExA(&version) && version.dwPlatformId == VER_PLATFORM_WIN32_NT &&
        version.dwMajorVersion >= 5)
        return SRCCOPY | CAPTUREBLT;
    return SRCCOPY;
}

bool ValidDepth(int bpp) noexcept {
    return bpp == 1 || bpp == 4 || bpp == 8 || bpp == 16 || bpp == 24 || bpp == 32;
}

const DWORD* Masks(const BITMAPINFO* bmi) noexcept {
    return reinterpret_cast<const DWORD*>(bmi->bmiColors);
}

}  // namespace

DesktopImage::DesktopImage() noexcept
    : convert565_(DeskPref::FixCitrix16bit()), rasterOp_(GrabRasterOperation()) {}

DesktopImage::~DesktopImage() {
    Close();
    ReleaseLogoDc();
}

BOOL DesktopImage::OpenFromScreen() noexcept {
    return OpenScreen(nullptr);
}

BOOL DesktopImage::OpenSharedFromScreen(const char* name) noexcept {
    return name ? OpenScreen(name) : FALSE;
}

BOOL DesktopImage::CreateFromBitmapInfo(const BITMAPINFO* bmi) noexcept {
    return OpenBitmapInfo(bmi, nullptr, Memory::Private);
}

BOOL DesktopImage::CreateSharedFromBitmapInfo(const BITMAPINFO* bmi, const char* name) noexcept {
    return name ? OpenBitmapInfo(bmi, name, Memory::NewSection) : FALSE;
}

BOOL DesktopImage::OpenFromBitmapInfo(const char* name, const BITMAPINFO* bmi) noexcept {
    return name ? OpenBitmapInfo(bmi, name, Memory::ExistingSection) : FALSE;
}

BOOL DesktopImage::OpenScreen(const char* sectionName) noexcept {
    Guard guard(lock_);
    Close();
    const bool opened = [&] {
        screenDc_.emplace(nullptr);
        const HDC screen = screenDc_->get();
        if (!screen || !(GetDeviceCaps(screen, RASTERCAPS) & RC_BITBLT))
            return false;
        PrepareScreenReads(screen);
        memDc_.reset(CreateCompatibleDC(screen));
        if (!memDc_ || !(GetDeviceCaps(memDc_.get(), RASTERCAPS) & RC_DI_BITMAP))
            return false;
        // The display's format comes from a 1x1 compatible bitmap: the first GetDIBits fills the
        // header, the second the colour table or the masks.
        UniqueBitmap probe(CreateCompatibleBitmap(screen, 1, 1));
        if (!probe || !AllocateFormat())
            return false;
        auto* bmi = reinterpret_cast<BITMAPINFO*>(format_.get());
        bmi->bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
        bmi->bmiHeader.biBitCount = 0;
        if (!GetDIBits(screen, probe.get(), 0, 1, nullptr, bmi, DIB_RGB_COLORS))
            return false;
        if (!GetDIBits(screen, probe.get(), 0, 1, nullptr, bmi, DIB_RGB_COLORS))
            return false;
        bmi->bmiHeader.biWidth = GetDeviceCaps(screen, HORZRES);
        bmi->bmiHeader.biHeight = -GetDeviceCaps(screen, VERTRES);
        bmi->bmiHeader.biSizeImage = 0;
        bmi->bmiHeader.biClrUsed = 0;
        bmi->bmiHeader.biClrImportant = 0;
        if (!SetGeometryFromFormat())
            return false;
        if (!MakeDibSection(screen, sectionName,
                            sectionName ? Memory::NewSection : Memory::Private))
            return false;
        Clear();
        if (!ResetOverlay())
            return false;
        MakeLogoDc();
        return true;
    }();
    if (!opened)
        Close();
    return opened;
}

// The lock is held for the whole open, not only around the clear, so that a painting thread
// never sees a half-built image.
BOOL DesktopImage::OpenBitmapInfo(const BITMAPINFO* bmi, const char* name, Memory memory) noexcept {
    if (!bmi || bmi->bmiHeader.biSize != sizeof(BITMAPINFOHEADER))
        return FALSE;
    const UINT size = GetBitmapInfoSize(bmi);
    if (size > kFormatBlockSize)
        return FALSE;
    Guard guard(lock_);
    Close();
    const bool opened = [&] {
        memDc_.reset(CreateCompatibleDC(nullptr));
        if (!memDc_ || !(GetDeviceCaps(memDc_.get(), RASTERCAPS) & RC_DI_BITMAP))
            return false;
        if (!AllocateFormat())
            return false;
        std::memcpy(format_.get(), bmi, size);
        if (!SetGeometryFromFormat())
            return false;
        if (!MakeDibSection(memDc_.get(), name, memory))
            return false;
        if (memory != Memory::ExistingSection)
            Clear();
        if (!ResetOverlay())
            return false;
        if (memory != Memory::ExistingSection)
            MakeLogoDc();
        return true;
    }();
    if (!opened)
        Close();
    return opened;
}

bool DesktopImage::AllocateFormat() noexcept {
    format_.reset(new (std::nothrow) BYTE[kFormatBlockSize]);
    if (!format_)
        return false;
    std::memset(format_.get(), 0, kFormatBlockSize);
    return true;
}

bool DesktopImage::SetGeometryFromFormat() noexcept {
    const BITMAPINFOHEADER& h = GetBitmapInfo()->bmiHeader;
    if (h.biWidth <= 0 || h.biHeight >= 0 || h.biHeight == LONG_MIN || h.biPlanes != 1 ||
        !ValidDepth(h.biBitCount))
        return false;
    const long long stride = ((static_cast<long long>(h.biBitCount) * h.biWidth + 31) / 8) & ~3LL;
    if (stride * -static_cast<long long>(h.biHeight) > LONG_MAX)
        return false;
    stride_ = static_cast<int>(stride);
    imageRect_ = RECT{0, 0, h.biWidth, -h.biHeight};
    return true;
}

bool DesktopImage::MakeDibSection(HDC dc, const char* name, Memory memory) noexcept {
    const DWORD size = static_cast<DWORD>(stride_) * static_cast<DWORD>(imageRect_.bottom);
    if (memory == Memory::NewSection)
        section_ = CreateNamedSection(name, size);
    else if (memory == Memory::ExistingSection)
        section_ = TryOpenNamedSection(name);
    if (memory != Memory::Private && !section_)
        return false;
    void* bits = nullptr;
    dib_.reset(CreateDIBSection(dc, reinterpret_cast<const BITMAPINFO*>(format_.get()),
                                DIB_RGB_COLORS, &bits, section_.get(), 0));
    if (!dib_ || !bits)
        return false;
    bits_ = static_cast<BYTE*>(bits);
    const HGDIOBJ previous = SelectObject(memDc_.get(), dib_.get());
    if (!previous || previous == HGDI_ERROR)
        return false;
    previousBitmap_ = previous;
    return true;
}

// The default pointer is the system arrow at 0, 0, not drawn. A missing arrow does not fail
// the open; a missing save-under buffer does.
bool DesktopImage::ResetOverlay() noexcept {
    cursor_.reset();
    cursorX_ = cursorY_ = 0;
    cursorRect_ = RECT{};
    ICONINFO info{};
    const HCURSOR arrow = LoadCursorA(nullptr, reinterpret_cast<LPCSTR>(IDC_ARROW));
    if (arrow && GetIconInfo(arrow, &info)) {
        UniqueBitmap mask(info.hbmMask);
        UniqueBitmap color(info.hbmColor);
        BITMAP bm{};
        if (GetObjectA(mask.get(), sizeof bm, &bm)) {
            cursorWidth_ = bm.bmWidth;
            // A monochrome cursor's mask holds the AND and the XOR mask one above the other.
            cursorHeight_ = color ? bm.bmHeight : bm.bmHeight / 2;
        }
        hotSpotX_ = static_cast<int>(info.xHotspot);
        hotSpotY_ = static_cast<int>(info.yHotspot);
        info.fIcon = TRUE;
        cursor_.reset(CreateIconIndirect(&info));
    }
    saveUnder_.reset(new (std::nothrow) BYTE[kSaveUnderSize]);
    saveUnderSize_ = saveUnder_ ? kSaveUnderSize : 0;
    return saveUnder_ != nullptr;
}

void DesktopImage::MakeLogoDc() noexcept {
    ReleaseLogoDc();
    const HBITMAP logo = logo_.load();
    if (!logo)
        return;
    logoDc_.reset(CreateCompatibleDC(memDc_.get()));
    if (!logoDc_)
        return;
    const HGDIOBJ previous = SelectObject(logoDc_.get(), logo);
    if (!previous || previous == HGDI_ERROR) {
        logoDc_.reset();
        return;
    }
    logoPrevious_ = previous;
    logoInDc_ = logo;
}

void DesktopImage::ReleaseLogoDc() noexcept {
    if (logoDc_ && logoPrevious_)
        SelectObject(logoDc_.get(), logoPrevious_);
    logoDc_.reset();
    logoPrevious_ = nullptr;
    logoInDc_ = nullptr;
}

void DesktopImage::Close() noexcept {
    Guard guard(lock_);
    if (memDc_ && previousBitmap_)
        SelectObject(memDc_.get(), previousBitmap_);
    previousBitmap_ = nullptr;
    memDc_.reset();
    dib_.reset();
    bits_ = nullptr;
    section_.reset();
    format_.reset();
    screenDc_.reset();
    cursor_.reset();
    saveUnder_.reset();
    saveUnderSize_ = 0;
}

int DesktopImage::GetBitsPixel() const noexcept {
    return format_ ? GetBitmapInfo()->bmiHeader.biBitCount : 0;
}

bool DesktopImage::InsideImage(const RECT* r) const noexcept {
    return bits_ && r->left >= 0 && r->top >= 0 && r->left <= r->right && r->top <= r->bottom &&
           r->right <= imageRect_.right && r->bottom <= imageRect_.bottom;
}

BOOL DesktopImage::Grab(const RECT* r) noexcept {
    if (!r)
        return FALSE;
    Guard guard(lock_);
    if (!memDc_ || !screenDc_ || !screenDc_->get())
        return FALSE;
    const LONG width = r->right - r->left;
    const LONG stripRows = ScreenStripRows(width);
    BOOL result = TRUE;
    for (LONG top = r->top; top < r->bottom; top += stripRows) {
        const LONG rows = std::min(stripRows, r->bottom - top);
        if (!BitBlt(memDc_.get(), r->left, top, width, rows, screenDc_->get(), r->left, top,
                    rasterOp_))
            result = FALSE;
    }
    // The logo DC holds the logo of the last open: a logo set since shows from the next open,
    // until then the previous one keeps stamping; no logo at all stops the stamping at once.
    BITMAP bm{};
    if (logo_.load() && logoInDc_ && logoDc_ && GetObjectA(logoInDc_, sizeof bm, &bm)) {
        const RECT logoRect{0, imageRect_.bottom - bm.bmHeight, bm.bmWidth, imageRect_.bottom};
        RECT hit;
        if (IntersectRect(&hit, r, &logoRect))
            BitBlt(memDc_.get(), hit.left, hit.top, hit.right - hit.left, hit.bottom - hit.top,
                   logoDc_.get(), hit.left - logoRect.left, hit.top - logoRect.top, SRCCOPY);
    }
    return result;
}

BOOL DesktopImage::CopyRows(const RECT* r, void* dst, UINT* pcb, UINT firstLine,
                            UINT* pLines) noexcept {
    return ReadRows(r, dst, pcb, firstLine, pLines, ReadMode::Copy);
}

BOOL DesktopImage::CopyRowsBottomUp(const RECT* r, void* dst, UINT* pcb, UINT firstLine,
                                    UINT* pLines) noexcept {
    return ReadRows(r, dst, pcb, firstLine, pLines, ReadMode::BottomUp);
}

BOOL DesktopImage::ConvertRows(const RECT* r, void* dst, UINT* pcb, UINT firstLine,
                               UINT* pLines) noexcept {
    return ReadRows(r, dst, pcb, firstLine, pLines, ReadMode::Convert);
}

BOOL DesktopImage::ReadRows(const RECT* r, void* dst, UINT* pcb, UINT firstLine, UINT* pLines,
                            ReadMode mode) noexcept {
    if (!r || !dst || !pcb || !pLines)
        return FALSE;
    Guard guard(lock_);
    const int bpp = GetBitsPixel();
    const long long rowBytes = RowBytes(*r, bpp);
    if (rowBytes <= 0) {
        *pLines = 0;
        return FALSE;
    }
    if (!InsideImage(r))
        return FALSE;
    const UINT height = static_cast<UINT>(r->bottom - r->top);
    if (firstLine > height)
        return FALSE;

    using Converter = UINT(WINAPI*)(const void*, void*, UINT);
    Converter convert = nullptr;
    UINT outBytes = static_cast<UINT>(rowBytes);
    if (mode == ReadMode::Convert) {
        const UINT width = static_cast<UINT>(r->right - r->left);
        const BITMAPINFO* bmi = GetBitmapInfo();
        if (bpp == 32) {
            convert = ConvertRow32To555;
            outBytes = 2 * width;
        } else if (bpp == 24) {
            convert = ConvertRow24To555;
            outBytes = 2 * width;
        } else if (bpp == 16 && convert565_ && bmi->bmiHeader.biCompression == BI_BITFIELDS &&
                   Masks(bmi)[0] == 0xF800) {
            convert = ConvertRow565To555;
        }
    }
    const UINT rows = std::min(height - firstLine, *pcb / outBytes);
    const BYTE* src = bits_ + static_cast<size_t>(r->top + firstLine) * stride_ +
                      static_cast<size_t>(r->left) * bpp / 8;
    BYTE* out = static_cast<BYTE*>(dst);
    ptrdiff_t step = outBytes;
    if (mode == ReadMode::BottomUp && rows > 0) {
        out += static_cast<size_t>(rows - 1) * outBytes;
        step = -step;
    }
    for (UINT i = 0; i < rows; ++i, src += stride_, out += step) {
        if (convert)
            convert(src, out, static_cast<UINT>(rowBytes));
        else
            std::memcpy(out, src, static_cast<size_t>(rowBytes));
    }
    *pcb = rows * outBytes;
    *pLines = rows;
    return TRUE;
}

BOOL DesktopImage::PutRows(const RECT* r, const void* src) noexcept {
    if (!r || !src || !InsideImage(r))
        return FALSE;
    const size_t rowBytes = static_cast<size_t>(RowBytes(*r, GetBitsPixel()));
    BYTE* dst = bits_ + static_cast<size_t>(r->top) * stride_ +
                static_cast<size_t>(r->left) * GetBitsPixel() / 8;
    const BYTE* in = static_cast<const BYTE*>(src);
    for (LONG y = r->top; y < r->bottom; ++y, dst += stride_, in += rowBytes)
        std::memcpy(dst, in, rowBytes);
    return TRUE;
}

BOOL DesktopImage::WriteRows(const RECT* r, const void* src) noexcept {
    if (!r || !src)
        return FALSE;
    Guard guard(lock_);
    if (!InsideImage(r))
        return FALSE;
    RECT hit;
    const RECT pointer = cursorRect_;
    const bool lift = IntersectRect(&hit, r, &pointer) != FALSE;
    if (lift)
        PutRows(&pointer, saveUnder_.get());
    const BOOL written = PutRows(r, src);
    // The buffer already fits this rectangle, so the save cannot fail.
    if (lift && SaveUnder(pointer))
        DrawCursor();
    return written;
}

void DesktopImage::Clear() noexcept {
    Guard guard(lock_);
    if (!memDc_ || !bits_)
        return;
    SetBkColor(memDc_.get(), kBackground);
    ExtTextOutA(memDc_.get(), 0, 0, ETO_OPAQUE, &imageRect_, "", 0, nullptr);
    GdiFlush();
    // A drawn pointer stays on top, over saved background.
    if (!IsRectEmpty(&cursorRect_) && SaveUnder(cursorRect_))
        DrawCursor();
}

BOOL DesktopImage::BltTo(HDC dc, int x, int y, const RECT* src) noexcept {
    if (!src)
        return FALSE;
    Guard guard(lock_);
    if (!memDc_)
        return FALSE;
    return BitBlt(dc, x, y, src->right - src->left, src->bottom - src->top, memDc_.get(), src->left,
                  src->top, SRCCOPY);
}

BOOL DesktopImage::StretchBltTo(HDC dc, const RECT* dst, const RECT* src) noexcept {
    if (!dst || !src)
        return FALSE;
    Guard guard(lock_);
    if (!memDc_)
        return FALSE;
    return StretchBlt(dc, dst->left, dst->top, dst->right - dst->left, dst->bottom - dst->top,
                      memDc_.get(), src->left, src->top, src->right - src->left,
                      src->bottom - src->top, SRCCOPY);
}

void DesktopImage::PaletteToColorTable(const PALETTEENTRY* entries, UINT count,
                                       RGBQUAD* colors) noexcept {
    if (!entries || !colors)
        return;
    for (UINT i = 0; i < count; ++i)
        colors[i] = RGBQUAD{entries[i].peBlue, entries[i].peGreen, entries[i].peRed, 0};
}

BOOL DesktopImage::RefreshPalette() noexcept {
    const int bpp = GetBitsPixel();
    if (bpp == 0 || bpp > 8 || !memDc_ || !screenDc_ || !screenDc_->get())
        return FALSE;
    const UINT count = 1u << bpp;
    PALETTEENTRY entries[256] = {};
    if (GetSystemPaletteEntries(screenDc_->get(), 0, count, entries) == 0)
        return FALSE;
    auto* colors = reinterpret_cast<BITMAPINFO*>(format_.get())->bmiColors;
    PaletteToColorTable(entries, count, colors);
    SetDIBColorTable(memDc_.get(), 0, count, colors);
    return TRUE;
}

void DesktopImage::ApplyColorTable() noexcept {
    Guard guard(lock_);
    const int bpp = GetBitsPixel();
    if (bpp == 0 || bpp > 8 || !memDc_)
        return;
    SetDIBColorTable(memDc_.get(), 0, 1u << bpp, GetBitmapInfo()->bmiColors);
}

// Takes the lock although nothing else here needs it: the decoding thread may be loading a new
// colour table meanwhile.
HPALETTE DesktopImage::CreateImagePalette() noexcept {
    Guard guard(lock_);
    const int bpp = GetBitsPixel();
    if (bpp == 0 || bpp > 8)
        return nullptr;
    const UINT count = 1u << bpp;
    struct {
        WORD version;
        WORD entries;
        PALETTEENTRY colors[256];
    } palette{0x300, static_cast<WORD>(count), {}};
    const RGBQUAD* table = GetBitmapInfo()->bmiColors;
    for (UINT i = 0; i < count; ++i)
        palette.colors[i] = PALETTEENTRY{table[i].rgbRed, table[i].rgbGreen, table[i].rgbBlue, 0};
    return CreatePalette(reinterpret_cast<const LOGPALETTE*>(&palette));
}

BOOL DesktopImage::LoadBitmapInfo(const BITMAPINFO* bmi) noexcept {
    if (!bmi)
        return FALSE;
    Guard guard(lock_);
    if (!format_)
        return FALSE;
    const BITMAPINFO* own = GetBitmapInfo();
    const BITMAPINFOHEADER& h = bmi->bmiHeader;
    const BITMAPINFOHEADER& mine = own->bmiHeader;
    if (h.biSize != mine.biSize || h.biWidth != mine.biWidth || h.biHeight != mine.biHeight ||
        h.biBitCount != mine.biBitCount || h.biCompression != mine.biCompression)
        return FALSE;
    if (h.biCompression == BI_BITFIELDS && std::memcmp(Masks(bmi), Masks(own), 12) != 0)
        return FALSE;
    std::memcpy(format_.get(), bmi, GetBitmapInfoSize(bmi));
    ApplyColorTable();
    return TRUE;
}

BOOL DesktopImage::AlignRect(const RECT* in, RECT* out) const noexcept {
    if (!in || !out)
        return FALSE;
    const RECT snapped = UpdateRegion::SnapToGrid(*in);
    return IntersectRect(out, &snapped, &imageRect_);
}

UINT DesktopImage::GetRectBytes(const RECT* r) const noexcept {
    if (!r)
        return 0;
    const long long bytes =
        RowBytes(*r, GetBitsPixel()) * (static_cast<long long>(r->bottom) - r->top);
    return bytes <= 0 ? 0 : static_cast<UINT>(std::min<long long>(bytes, UINT_MAX));
}

void DesktopImage::GetScreenRect(RECT* out) const noexcept {
    if (out)
        *out = imageRect_;
}

// The colour-part rule is the packet module's; a header of another size only shifts it.
UINT DesktopImage::GetBitmapInfoSize(const BITMAPINFO* bmi) noexcept {
    if (!bmi)
        return 0;
    const BITMAPINFOHEADER& h = bmi->bmiHeader;
    return h.biSize - packet::kBitmapInfoHeaderSize +
           packet::BitmapInfoSize(h.biBitCount, h.biCompression);
}

bool DesktopImage::Convert565() noexcept {
    Guard guard(lock_);
    return convert565_;
}

void DesktopImage::SetConvert565(bool on) noexcept {
    Guard guard(lock_);
    convert565_ = on;
}

void DesktopImage::SetLogo(HBITMAP logo) noexcept {
    logo_.store(logo);
}

// --- pointer overlay ---

RECT DesktopImage::CursorBounds() const noexcept {
    const long long left = static_cast<long long>(cursorX_) - hotSpotX_;
    const long long top = static_cast<long long>(cursorY_) - hotSpotY_;
    const RECT shape{ClampToLong(left), ClampToLong(top), ClampToLong(left + cursorWidth_),
                     ClampToLong(top + cursorHeight_)};
    RECT clipped;
    if (!IntersectRect(&clipped, &shape, &imageRect_))
        return RECT{};
    const RECT snapped = UpdateRegion::SnapToGrid(clipped);
    RECT bounds;
    IntersectRect(&bounds, &snapped, &imageRect_);
    return bounds;
}

void DesktopImage::LiftCursor() noexcept {
    if (!IsRectEmpty(&cursorRect_))
        PutRows(&cursorRect_, saveUnder_.get());
    cursorRect_ = RECT{};
}

// The buffer grows for pointers whose rectangle holds more than it (large shapes, deep images)
// and keeps its size until Close; the whole rectangle is always saved, so a restore never
// writes back rows that were not saved.
bool DesktopImage::SaveUnder(const RECT& r) noexcept {
    const UINT need = GetRectBytes(&r);
    if (need > saveUnderSize_) {
        std::unique_ptr<BYTE[]> bigger(new (std::nothrow) BYTE[need]);
        if (!bigger)
            return false;
        saveUnder_ = std::move(bigger);
        saveUnderSize_ = need;
    }
    UINT cb = saveUnderSize_;
    UINT lines = 0;
    return CopyRows(&r, saveUnder_.get(), &cb, 0, &lines) &&
           lines == static_cast<UINT>(r.bottom - r.top);
}

// Drawn at the shape's own size, so the drawn area is the one the cursor rectangle covers.
void DesktopImage::DrawCursor() noexcept {
    if (!cursor_ || !memDc_)
        return;
    DrawIconEx(memDc_.get(), ClampToLong(static_cast<long long>(cursorX_) - hotSpotX_),
               ClampToLong(static_cast<long long>(cursorY_) - hotSpotY_), cursor_.get(),
               cursorWidth_, cursorHeight_, 0, nullptr, DI_NORMAL);
    GdiFlush();
}

BOOL DesktopImage::PlaceCursor() noexcept {
    const RECT bounds = CursorBounds();
    if (IsRectEmpty(&bounds) || !cursor_ || !SaveUnder(bounds))
        return FALSE;
    cursorRect_ = bounds;
    UnionRect(&changedArea_, &changedArea_, &cursorRect_);
    DrawCursor();
    return TRUE;
}

// The record's rows are unpadded (CursorRecordLayout.h); CreateIcon wants both masks in rows
// padded to 16 bits, which they already are for the usual widths (multiples of 16).
HICON DesktopImage::MakeIcon(const packet::CursorRecordView& shape) noexcept {
    const packet::CursorRecord& f = shape.record;
    const UINT andRow = ((f.width + 15u) / 16u) * 2u;
    const UINT xorRow = ((static_cast<UINT>(f.width) * f.bitsPerPixel + 15u) / 16u) * 2u;
    const UINT xorSrcRow = static_cast<UINT>(f.width) * f.bitsPerPixel / 8u;
    std::unique_ptr<BYTE[]> andPadded, xorPadded;
    const BYTE* andBits = shape.andMask;
    const BYTE* xorBits = shape.xorBits;
    if (f.andBytesPerRow != andRow) {
        andPadded = PadRows(andBits, f.andBytesPerRow, andRow, f.height);
        andBits = andPadded.get();
    }
    if (xorSrcRow != xorRow) {
        xorPadded = PadRows(xorBits, xorSrcRow, xorRow, f.height);
        xorBits = xorPadded.get();
    }
    if (!andBits || !xorBits)
        return nullptr;
    return CreateIcon(nullptr, f.width, f.height, 1, f.bitsPerPixel, andBits, xorBits);
}

BOOL DesktopImage::SetCursorShape(const packet::CursorRecordView* shape) noexcept {
    if (!shape || !shape->newShape || !shape->andMask || !shape->xorBits ||
        shape->record.height == 0)
        return FALSE;
    Guard guard(lock_);
    if (!bits_)
        return FALSE;
    cursor_.reset();
    UnionRect(&changedArea_, &changedArea_, &cursorRect_);
    LiftCursor();
    cursor_.reset(MakeIcon(*shape));
    if (!cursor_)
        return FALSE;
    hotSpotX_ = shape->record.hotSpotX;
    hotSpotY_ = shape->record.hotSpotY;
    cursorWidth_ = shape->record.width;
    cursorHeight_ = shape->record.height;
    return PlaceCursor();
}

void DesktopImage::DropCursorShape() noexcept {
    Guard guard(lock_);
    if (!bits_)
        return;
    cursor_.reset();
    UnionRect(&changedArea_, &changedArea_, &cursorRect_);
    LiftCursor();
}

BOOL DesktopImage::MoveCursor(int x, int y) noexcept {
    Guard guard(lock_);
    if (!bits_)
        return FALSE;
    UnionRect(&changedArea_, &changedArea_, &cursorRect_);
    LiftCursor();
    cursorX_ = x;
    cursorY_ = y;
    return PlaceCursor();
}

RECT DesktopImage::TakeChangedArea() noexcept {
    Guard guard(lock_);
    const RECT area = changedArea_;
    changedArea_ = RECT{};
    return area;
}

void DesktopImage::GetCursorRect(RECT* out) noexcept {
    if (!out)
        return;
    Guard guard(lock_);
    *out = cursorRect_;
}

}  // namespace vantrel
