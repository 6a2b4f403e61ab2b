// DesktopImage: the in-memory desktop every end of the stream works on. A top-down DIB section
// selected into a memory DC, its BITMAPINFO, the overlay of the mouse pointer, an optional logo
// stamped into grabbed areas, and one re-entrant lock. The capture grabs into it and encodes
// from it; the render, the shared-memory server and its clients decode into it and paint from
// it. Each owner holds one by value and opens and closes it as the desktop format changes.
//
// Lock: lock_ guards the memory DC, the DIB section, the pixel memory, the format block and
// the overlay fields against the painting thread, and is held for the whole of every open. It
// is re-entrant; PutRows, RefreshPalette and the geometry helpers run without it (their callers
// hold it or own the image alone).
#pragma once

#include <windows.h>

#include <atomic>
#include <memory>
#include <optional>

#include "wincom/CriticalSection.h"
#include "wincom/UniqueHandle.h"
#include "stream/Packet.h"

namespace vantrel {

class DesktopImage {
  public:
    static constexpr UINT kFormatBlockSize = packet::kMaxBitmapInfoSize;
    // Save-under size made at every open; it grows for pointers that need more.
    static constexpr UINT kSaveUnderSize = 8448;
    static constexpr COLORREF kBackground = 0x808000;

    DesktopImage() noexcept;
    virtual ~DesktopImage();
    DesktopImage(const DesktopImage&) = delete;
    DesktopImage& operator=(const DesktopImage&) = delete;

    // Opens. Each closes an open image first; a failed open leaves the image closed.
    BOOL OpenFromScreen() noexcept;
    // The pixel memory is a new named page-file section any process may open.
    BOOL OpenSharedFromScreen(const char* name) noexcept;
    BOOL CreateFromBitmapInfo(const BITMAPINFO* bmi) noexcept;
    BOOL CreateSharedFromBitmapInfo(const BITMAPINFO* bmi, const char* name) noexcept;
    // Maps an existing section made by another process; its pixels are kept (no clear, no logo).
    BOOL OpenFromBitmapInfo(const char* name, const BITMAPINFO* bmi) noexcept;
    // Keeps the image rectangle, the pointer geometry and the logo DC.
    void Close() noexcept;

    bool IsOpen() const noexcept { return format_ != nullptr; }

    // Rows: r in image pixels, rows unpadded, ((right - left) * bpp) / 8 bytes each. Row reads
    // copy as many rows of r (from firstLine on) as fit in *pcb, set *pLines and *pcb. A
    // rectangle not wholly inside the image, or a null pointer, gives false with the out values
    // untouched; a 0-byte row gives *pLines = 0 and false.
    BOOL CopyRows(const RECT* r, void* dst, UINT* pcb, UINT firstLine, UINT* pLines) noexcept;
    // Like CopyRows with the rows in reverse order: dst becomes a bottom-up DIB body.
    BOOL CopyRowsBottomUp(const RECT* r, void* dst, UINT* pcb, UINT firstLine,
                          UINT* pLines) noexcept;
    // Like CopyRows, converted to the stream's pixels: 24/32 bpp to 5-5-5, 5-6-5 to 5-5-5 when
    // the FixCitrix16bit switch is on, anything else copied. The owner calls PixmendInit first.
    BOOL ConvertRows(const RECT* r, void* dst, UINT* pcb, UINT firstLine, UINT* pLines) noexcept;
    // r from the screen into the same place (screen opens only), the logo stamped where r meets
    // the bottom-left corner. The result of the screen copy.
    BOOL Grab(const RECT* r) noexcept;
    // Writes rows into r, which must lie wholly inside the image. No lock, no overlay care.
    BOOL PutRows(const RECT* r, const void* src) noexcept;
    // PutRows under the lock with the pointer lifted and put back on top of the new rows.
    BOOL WriteRows(const RECT* r, const void* src) noexcept;
    // Fills the image with the background colour.
    void Clear() noexcept;

    BOOL BltTo(HDC dc, int x, int y, const RECT* src) noexcept;
    BOOL StretchBltTo(HDC dc, const RECT* dst, const RECT* src) noexcept;

    // Palette operations act at 8 bpp or less only.
    // Loads the system palette through the screen DC into the format block and the DIB.
    BOOL RefreshPalette() noexcept;
    void ApplyColorTable() noexcept;
    // The caller owns the palette.
    HPALETTE CreateImagePalette() noexcept;
    // Replaces the colour table (or masks) with bmi's and loads it into the DIB. bmi must
    // describe the image's own size, depth and compression; false and nothing changed otherwise.
    BOOL LoadBitmapInfo(const BITMAPINFO* bmi) noexcept;
    // The system palette's entries (red, green, blue, flags) as colour-table entries.
    static void PaletteToColorTable(const PALETTEENTRY* entries, UINT count,
                                    RGBQUAD* colors) noexcept;

    // Snaps in outward to the 8-pixel grid and clips it to the image; true when not empty.
    BOOL AlignRect(const RECT* in, RECT* out) const noexcept;
    UINT GetRectBytes(const RECT* r) const noexcept;
    void GetScreenRect(RECT* out) const noexcept;
    static UINT GetBitmapInfoSize(const BITMAPINFO* bmi) noexcept;

    // The bitmap stays the caller's; it is stamped from the next open on (the previous logo
    // goes on stamping until then), and a null logo stops the stamping at once.
    void SetLogo(HBITMAP logo) noexcept;

    // Pointer overlay. Both return true when the pointer was drawn; the changed area collects
    // the old and the new pointer rectangle until the owner takes it. The shape comes from a
    // checked cursor record; one without a new shape changes nothing.
    BOOL SetCursorShape(const packet::CursorRecordView* shape) noexcept;
    // A new shape arrived that cannot be used: the old pointer is lifted (its place goes into
    // the changed area) and none is drawn until the next shape.
    void DropCursorShape() noexcept;
    BOOL MoveCursor(int x, int y) noexcept;
    // Returns the changed area and empties it, under the lock.
    RECT TakeChangedArea() noexcept;
    void GetCursorRect(RECT* out) noexcept;

    // The format block (null while closed). Writers go through LoadBitmapInfo.
    const BITMAPINFO* GetBitmapInfo() const noexcept {
        return reinterpret_cast<const BITMAPINFO*>(format_.get());
    }
    const BYTE* GetBits() const noexcept { return bits_; }
    int GetStride() const noexcept { return stride_; }
    int GetBitsPixel() const noexcept;
    // Whether ConvertRows turns 5-6-5 into 5-5-5 ("FixCitrix16bit", read at construction; the
    // capture sets it again at each Run).
    bool Convert565() noexcept;
    void SetConvert565(bool on) noexcept;
    CriticalSection& Lock() noexcept { return lock_; }

  private:
    enum class Memory { Private, NewSection, ExistingSection };
    enum class ReadMode { Copy, BottomUp, Convert };
    BOOL OpenScreen(const char* sectionName) noexcept;
    BOOL OpenBitmapInfo(const BITMAPINFO* bmi, const char* name, Memory memory) noexcept;
    bool AllocateFormat() noexcept;
    bool SetGeometryFromFormat() noexcept;
    bool MakeDibSection(HDC dc, const char* name, Memory memory) noexcept;
    bool ResetOverlay() noexcept;
    void MakeLogoDc() noexcept;
    void ReleaseLogoDc() noexcept;
    bool InsideImage(const RECT* r) const noexcept;
    BOOL ReadRows(const RECT* r, void* dst, UINT* pcb, UINT firstLine, UINT* pLines,
                  ReadMode mode) noexcept;
    RECT CursorBounds() const noexcept;
    BOOL PlaceCursor() noexcept;
    void LiftCursor() noexcept;
    bool SaveUnder(const RECT& r) noexcept;
    void DrawCursor() noexcept;
    static HICON MakeIcon(const packet::CursorRecordView& shape) noexcept;

    UniqueHdc memDc_;
    UniqueBitmap dib_;
    BYTE* bits_ = nullptr;
    std::unique_ptr<BYTE[]> format_;
    RECT imageRect_{};
    UniqueMapping section_;
    std::optional<WindowDc> screenDc_;  // GetDC of the whole screen, screen opens only
    HGDIOBJ previousBitmap_ = nullptr;
    UniqueIcon cursor_;
    std::unique_ptr<BYTE[]> saveUnder_;
    UINT saveUnderSize_ = 0;
    RECT cursorRect_{};
    int cursorWidth_ = 0;
    int cursorHeight_ = 0;
    int hotSpotX_ = 0;
    int hotSpotY_ = 0;
    int cursorX_ = 0;
    int cursorY_ = 0;
    int stride_ = 0;
    RECT changedArea_{};
    UniqueHdc logoDc_;
    std::atomic<HBITMAP> logo_{nullptr};
    HBITMAP logoInDc_ = nullptr;
    HGDIOBJ logoPrevious_ = nullptr;
    bool convert565_ = false;
    DWORD rasterOp_ = SRCCOPY;
    CriticalSection lock_;
};

}  // namespace vantrel
