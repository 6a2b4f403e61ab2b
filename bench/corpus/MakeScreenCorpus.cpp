// make_screen_corpus: photographs the virtual display while real programs show typical
// classroom screens, and writes them as the benchmarks' corpus (format in ScreenCorpus.h).
// Run by scripts/make-corpus, which passes the output folder, the corpus sources (this folder)
// and a JPEG photograph from a Debian package:
//   make_screen_corpus.exe <output folder> <source folder> <photo.jpg>
// Scenes, each over the whole screen:
//   document     WordPad showing lesson.rtf (headings, serif prose, a list)
//   code         Notepad showing a C++ source of this project in a monospaced font
//   spreadsheet  a list-view grid of marks with grid lines, header and a formula bar
//   web page     a browser-like window: address bar, banner, navigation, article text, the
//                photograph scaled into the article, a side bar and buttons
//   photo        a picture viewer showing the photograph at its own size
#include <windows.h>
#include <commctrl.h>
#include <wincodec.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/Screen.h"
#include "common/ScreenCorpus.h"
#include "wincom/ComPtr.h"
#include "wincom/File.h"
#include "wincom/UniqueHandle.h"
#include "wincom/Window.h"

using namespace vantrel;

namespace {

using Font = UniqueAny<detail::GdiObjectTraits<HFONT>>;

struct Picture {
    int width = 0, height = 0;
    std::vector<uint32_t> pixels;  // 32-bit, top-down
};

// A JPEG (or any format the imaging component reads) as 32-bit pixels.
Picture LoadPicture(const std::string& path) {
    Picture picture;
    ComPtr<IWICImagingFactory> factory;
    ComPtr<IWICBitmapDecoder> decoder;
    ComPtr<IWICBitmapFrameDecode> frame;
    ComPtr<IWICFormatConverter> converter;
    const std::wstring wide(path.begin(), path.end());
    UINT w = 0, h = 0;
    if (FAILED(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                IID_IWICImagingFactory, factory.PutVoid())) ||
        FAILED(factory->CreateDecoderFromFilename(wide.c_str(), nullptr, GENERIC_READ,
                                                  WICDecodeMetadataCacheOnDemand, decoder.Put())) ||
        FAILED(decoder->GetFrame(0, frame.Put())) ||
        FAILED(factory->CreateFormatConverter(converter.Put())) ||
        FAILED(converter->Initialize(frame.Get(), GUID_WICPixelFormat32bppBGR,
                                     WICBitmapDitherTypeNone, nullptr, 0,
                                     WICBitmapPaletteTypeCustom)) ||
        FAILED(converter->GetSize(&w, &h)))
        return picture;
    picture.pixels.resize(static_cast<size_t>(w) * h);
    if (FAILED(converter->CopyPixels(nullptr, 4 * w, 4 * w * h,
                                     reinterpret_cast<BYTE*>(picture.pixels.data()))))
        return Picture{};
    picture.width = static_cast<int>(w);
    picture.height = static_cast<int>(h);
    return picture;
}

Font MakeFont(int pixels, const char* face, int weight = FW_NORMAL, bool underline = false) {
    return Font(CreateFontA(-pixels, 0, 0, 0, weight, 0, underline, 0, DEFAULT_CHARSET, 0, 0,
                            CLEARTYPE_QUALITY, 0, face));
}

void Fill(HDC dc, const RECT& r, COLORREF c) {
    UniqueBrush brush(CreateSolidBrush(c));
    FillRect(dc, &r, brush.get());
}

// Draws text in r; the height it took.
int Text(HDC dc, HFONT font, COLORREF colour, RECT r, const char* text,
         UINT format = DT_LEFT | DT_WORDBREAK) {
    SelectObjectGuard select(dc, font);
    SetBkMode(dc, TRANSPARENT);
    SetTextColor(dc, colour);
    return DrawTextA(dc, text, -1, &r, format);
}

void DrawPicture(HDC dc, const Picture& p, int x, int y, int w, int h) {
    std::vector<BYTE> bmi = test::Bmi(p.width, p.height, 32);
    SetStretchBltMode(dc, HALFTONE);
    StretchDIBits(dc, x, y, w, h, 0, 0, p.width, p.height, p.pixels.data(), test::AsBmi(bmi),
                  DIB_RGB_COLORS, SRCCOPY);
}

// The top-level window a program of this class shows, once it shows one.
HWND WaitForWindow(const char* windowClass) {
    HWND found = nullptr;
    test::WaitUntil([&] { return (found = FindWindowA(windowClass, nullptr)) != nullptr; });
    return found;
}

// Starts a program of the prefix with arguments; the process handle.
UniqueHandle Start(const std::string& commandLine) {
    STARTUPINFOA si{};
    si.cb = sizeof si;
    PROCESS_INFORMATION pi{};
    std::string line = commandLine;
    if (!CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si,
                        &pi))
        return UniqueHandle();
    CloseHandle(pi.hThread);
    return UniqueHandle(pi.hProcess);
}

void Cover(HWND window) {
    SetWindowPos(window, HWND_TOPMOST, 0, 0, GetSystemMetrics(SM_CXSCREEN),
                 GetSystemMetrics(SM_CYSCREEN), SWP_SHOWWINDOW);
}

// The screen once two grabs a moment apart agree (the platform shows what a window painted a
// little later).
bench::Screenshot Photograph(const char* name) {
    const RECT all{0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
    std::vector<uint16_t> previous;
    std::vector<uint16_t> now;
    for (int i = 0; i < 50; ++i) {
        test::PumpFor(300);
        now = test::GrabScreen555(all);
        if (i >= 3 && now == previous)
            break;
        previous = now;
    }
    bench::Screenshot shot;
    shot.name = name;
    shot.width = all.right;
    shot.height = all.bottom;
    shot.pixels = std::move(now);
    return shot;
}

bool Save(const std::string& folder, const bench::Screenshot& shot) {
    const std::vector<uint8_t> packed = bench::EncodeScreenshot(shot, 19);
    File file;
    const std::string path = folder + "\\" + bench::CorpusFileName(shot.name);
    const bool ok = !packed.empty() &&
                    file.Open(path.c_str(), File::modeWrite | File::modeCreate) &&
                    file.Write(packed.data(), static_cast<uint32_t>(packed.size()));
    std::printf("%-12s %s (%zu bytes)\n", shot.name.c_str(), ok ? "written" : "FAILED",
                packed.size());
    return ok;
}

// A program of the prefix showing a file, covering the screen.
bench::Screenshot ProgramScene(const char* name, const std::string& commandLine,
                               const char* windowClass) {
    UniqueHandle process = Start(commandLine);
    HWND window = WaitForWindow(windowClass);
    bench::Screenshot shot;
    if (window) {
        Cover(window);
        shot = Photograph(name);
        PostMessageA(window, WM_CLOSE, 0, 0);
    }
    if (process && WaitForSingleObject(process.get(), 5000) != WAIT_OBJECT_0)
        TerminateProcess(process.get(), 0);
    return shot;
}

void SetNotepadFont() {
    UniqueHkey key;
    if (RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\Microsoft\\Notepad", 0, nullptr, 0,
                        KEY_ALL_ACCESS, nullptr, key.put(), nullptr) != ERROR_SUCCESS)
        return;
    const char face[] = "DejaVu Sans Mono";
    RegSetValueExA(key.get(), "lfFaceName", 0, REG_SZ, reinterpret_cast<const BYTE*>(face),
                   sizeof face);
    const DWORD points = 100, wrap = 0;  // tenths of a point
    RegSetValueExA(key.get(), "iPointSize", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&points),
                   sizeof points);
    RegSetValueExA(key.get(), "fWrap", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&wrap),
                   sizeof wrap);
}

const WindowClassInfo kSceneClass{"VantrelCorpusScene"};

// A window of our own over the whole screen, with child controls made by build and a painter.
class SceneWindow {
  public:
    using Painter = std::function<void(HDC, const RECT&)>;
    SceneWindow(const char* title, Painter painter) : painter_(std::move(painter)) {
        window_.On(WM_PAINT, [this](WPARAM, LPARAM) -> std::optional<LRESULT> {
            PaintDc dc(window_.Handle());
            RECT client;
            GetClientRect(window_.Handle(), &client);
            painter_(dc.get(), client);
            return 0;
        });
        window_.On(WM_ERASEBKGND, [](WPARAM, LPARAM) -> std::optional<LRESULT> { return 1; });
        window_.Create(kSceneClass, WS_EX_TOPMOST, title,
                       WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN | WS_VISIBLE, 0, 0,
                       GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN));
    }
    HWND Handle() const noexcept { return window_.Handle(); }
    HWND Child(const char* cls, const char* text, DWORD style, int x, int y, int w, int h,
               HFONT font) {
        HWND child = CreateWindowExA(0, cls, text, WS_CHILD | WS_VISIBLE | style, x, y, w, h,
                                     window_.Handle(), nullptr, GetModuleHandleA(nullptr), nullptr);
        SendMessageA(child, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
        return child;
    }

  private:
    Painter painter_;
    Window window_;
};

bench::Screenshot SpreadsheetScene() {
    Font ui = MakeFont(13, "DejaVu Sans");
    SceneWindow scene("Marks 7B.xls - Sheet", [](HDC dc, const RECT& client) {
        Fill(dc, client, GetSysColor(COLOR_BTNFACE));
    });
    RECT client;
    GetClientRect(scene.Handle(), &client);
    const char* tools[] = {"Open", "Save", "Print", "Sum", "Sort", "Chart", "Filter"};
    for (int i = 0; i < 7; ++i)
        scene.Child("BUTTON", tools[i], BS_PUSHBUTTON, 4 + 64 * i, 4, 60, 24, ui.get());
    scene.Child("EDIT", "C14", WS_BORDER, 4, 34, 70, 22, ui.get());
    scene.Child("EDIT", "=AVERAGE(C2:C13)*0.6+AVERAGE(D2:D13)*0.4", WS_BORDER, 80, 34,
                client.right - 84, 22, ui.get());
    HWND grid = scene.Child(WC_LISTVIEWA, "", LVS_REPORT | WS_BORDER, 0, 60, client.right,
                            client.bottom - 60, ui.get());
    ListView_SetExtendedListViewStyle(grid, LVS_EX_GRIDLINES | LVS_EX_FULLROWSELECT);
    const char* columns[] = {"Pupil", "Test 1", "Test 2", "Project", "Homework",
                             "Oral",  "Term",   "Grade",  "Absent",  "Comment"};
    const int widths[] = {150, 70, 70, 70, 90, 60, 70, 60, 60, 290};
    for (int c = 0; c < 10; ++c) {
        LVCOLUMNA col{};
        col.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_FMT;
        col.fmt = c == 0 || c == 9 ? LVCFMT_LEFT : LVCFMT_RIGHT;
        col.cx = widths[c];
        col.pszText = const_cast<char*>(columns[c]);
        ListView_InsertColumn(grid, c, &col);
    }
    const char* first[] = {"Amira",  "Ben",   "Chloe", "Dmitri", "Elena", "Finn", "Grace",
                           "Hassan", "Ines",  "Jonas", "Keiko",  "Liam",  "Maya", "Noah",
                           "Olga",   "Pedro", "Quinn", "Rosa",   "Sami",  "Tara"};
    const char* last[] = {"Okafor", "Schmidt", "Martin", "Ivanov", "Rossi", "Byrne", "Lee",
                          "Haddad", "Silva",   "Berg",   "Sato",   "Walsh", "Patel", "Klein"};
    const char* comments[] = {"",
                              "steady progress",
                              "missed the lab report",
                              "excellent project",
                              "",
                              "needs to revise fractions",
                              "",
                              "very good oral work"};
    uint32_t seed = 7;
    auto next = [&] { return (seed = seed * 1103515245u + 12345u) >> 16; };
    for (int r = 0; r < 60; ++r) {
        char text[64];
        std::snprintf(text, sizeof text, "%s %s", first[r % 20], last[(r * 5 + 3) % 14]);
        LVITEMA item{};
        item.mask = LVIF_TEXT;
        item.iItem = r;
        item.pszText = text;
        ListView_InsertItem(grid, &item);
        double total = 0;
        for (int c = 1; c < 6; ++c) {
            const int mark = 40 + static_cast<int>(next() % 61);
            total += mark;
            std::snprintf(text, sizeof text, c == 4 ? "%d%%" : "%d", mark);
            ListView_SetItemText(grid, r, c, text);
        }
        std::snprintf(text, sizeof text, "%.1f", total / 5);
        ListView_SetItemText(grid, r, 6, text);
        const char grade[2] = {static_cast<char>('A' + (100 - static_cast<int>(total / 5)) / 12),
                               0};
        ListView_SetItemText(grid, r, 7, const_cast<char*>(grade));
        std::snprintf(text, sizeof text, "%u", next() % 4);
        ListView_SetItemText(grid, r, 8, text);
        ListView_SetItemText(grid, r, 9, const_cast<char*>(comments[next() % 8]));
    }
    ListView_SetItemState(grid, 13, LVIS_SELECTED, LVIS_SELECTED);
    return Photograph("spreadsheet");
}

const char* kArticle[] = {
    "Our science week opened on Monday with a visit from the regional water board. Pupils of "
    "all years followed the path of a raindrop from the hills above the town to the treatment "
    "works, and the older classes measured the flow of the river at three places along the "
    "school walk.",
    "On Wednesday the Year 7 groups built rain gauges from recycled bottles and placed them "
    "around the playground. The readings will be collected every morning for a month and "
    "shared with the partner school, so that both classes can compare the weather in two "
    "valleys.",
    "Year 9 pupils spent Thursday at the river with the field studies centre. They took "
    "samples of the water above and below the old mill, counted the insect larvae under the "
    "stones and used the results to judge how clean each stretch of the river is.",
    "Back in the laboratory the samples were filtered and tested for nitrates and phosphates. "
    "The results surprised many of the pupils: the cleanest water was found just below the "
    "town, where a new reed bed was planted two years ago.",
    "The week closed with an exhibition in the main hall. Parents are welcome to visit on "
    "Friday from three o'clock; the posters and models stay on display until the end of term.",
};

bench::Screenshot WebPageScene(const Picture& photo) {
    Font ui = MakeFont(13, "DejaVu Sans");
    Font title = MakeFont(30, "DejaVu Serif", FW_BOLD);
    Font nav = MakeFont(14, "DejaVu Sans", FW_BOLD);
    Font heading = MakeFont(20, "DejaVu Sans", FW_BOLD);
    Font body = MakeFont(14, "DejaVu Serif");
    Font link = MakeFont(13, "DejaVu Sans", FW_NORMAL, true);
    SceneWindow scene("Riverside School - Science week - Browser", [&](HDC dc, const RECT& c) {
        Fill(dc, c, RGB(255, 255, 255));
        Fill(dc, {0, 0, c.right, 36}, GetSysColor(COLOR_BTNFACE));
        Fill(dc, {0, 36, c.right, 130}, RGB(24, 78, 140));
        Text(dc, title.get(), RGB(255, 255, 255), {40, 56, c.right, 110}, "Riverside School",
             DT_LEFT | DT_SINGLELINE);
        Text(dc, ui.get(), RGB(200, 220, 245), {c.right - 330, 70, c.right - 30, 100},
             "Learning together since 1962", DT_RIGHT | DT_SINGLELINE);
        Fill(dc, {0, 130, c.right, 164}, RGB(232, 240, 250));
        const char* items[] = {"Home",  "News",    "Timetable", "Homework",
                               "Clubs", "Parents", "Contact"};
        for (int i = 0; i < 7; ++i)
            Text(dc, nav.get(), RGB(24, 78, 140), {40 + i * 120, 140, 160 + i * 120, 160}, items[i],
                 DT_LEFT | DT_SINGLELINE);
        const int left = 40, photoW = 300,
                  photoH = photo.width ? 300 * photo.height / photo.width : 0;
        Text(dc, heading.get(), RGB(30, 30, 30), {left, 184, c.right - 260, 214},
             "Science week: following the water", DT_LEFT | DT_SINGLELINE);
        Text(dc, ui.get(), RGB(120, 120, 120), {left, 216, c.right - 260, 236},
             "Posted by Mrs Okafor, 14 March - 4 comments", DT_LEFT | DT_SINGLELINE);
        if (photo.width)
            DrawPicture(dc, photo, left, 246, photoW, photoH);
        // The article flows beside the photograph, then under it.
        int y = 246;
        bool beside = true;
        for (const char* paragraph : kArticle) {
            if (beside && y > 246 + photoH - 80) {
                beside = false;
                y = std::max(y, 262 + photoH);
            }
            y += Text(dc, body.get(), RGB(40, 40, 40),
                      {beside ? left + photoW + 20 : left, y, c.right - 270, c.bottom}, paragraph) +
                 14;
        }
        Fill(dc, {c.right - 240, 184, c.right - 20, c.bottom - 20}, RGB(245, 245, 240));
        Text(dc, heading.get(), RGB(30, 30, 30), {c.right - 228, 194, c.right - 30, 220},
             "Coming up", DT_LEFT | DT_SINGLELINE);
        const char* events[] = {"Parents' evening, 21 March", "Choir concert, 28 March",
                                "Easter holidays begin",      "Year 9 options deadline",
                                "Sports day sign-up",         "Library book sale",
                                "Eco club meeting",           "Trip to the science museum"};
        for (int i = 0; i < 8; ++i)
            Text(dc, link.get(), RGB(0, 0, 200),
                 {c.right - 228, 232 + 26 * i, c.right - 30, 254 + 26 * i}, events[i],
                 DT_LEFT | DT_SINGLELINE);
    });
    RECT client;
    GetClientRect(scene.Handle(), &client);
    scene.Child("BUTTON", "<", BS_PUSHBUTTON, 4, 6, 26, 24, ui.get());
    scene.Child("BUTTON", ">", BS_PUSHBUTTON, 32, 6, 26, 24, ui.get());
    scene.Child("EDIT", "https://www.riverside-school.example/news/science-week",
                WS_BORDER | ES_AUTOHSCROLL, 64, 7, client.right - 170, 22, ui.get());
    scene.Child("BUTTON", "Search", BS_PUSHBUTTON, client.right - 100, 6, 90, 24, ui.get());
    for (int i = 0; i < 3; ++i)
        scene.Child("BUTTON",
                    i == 0   ? "Read more"
                    : i == 1 ? "Share"
                             : "Print",
                    BS_PUSHBUTTON, client.right - 232 + 72 * i, client.bottom - 60, 70, 26,
                    ui.get());
    return Photograph("web page");
}

bench::Screenshot PhotoScene(const Picture& photo, const std::string& name) {
    Font ui = MakeFont(13, "DejaVu Sans");
    SceneWindow scene(("Pictures - " + name).c_str(), [&](HDC dc, const RECT& c) {
        Fill(dc, c, RGB(48, 48, 48));
        Fill(dc, {0, 0, c.right, 34}, GetSysColor(COLOR_BTNFACE));
        Fill(dc, {0, c.bottom - 24, c.right, c.bottom}, GetSysColor(COLOR_BTNFACE));
        char status[128];
        std::snprintf(status, sizeof status, "%s   %d x %d   100%%", name.c_str(), photo.width,
                      photo.height);
        Text(dc, ui.get(), RGB(0, 0, 0), {8, c.bottom - 20, c.right, c.bottom}, status,
             DT_LEFT | DT_SINGLELINE);
        if (photo.width)
            DrawPicture(dc, photo, (c.right - photo.width) / 2,
                        34 + (c.bottom - 58 - photo.height) / 2, photo.width, photo.height);
    });
    const char* tools[] = {"Previous", "Next", "Rotate", "Zoom in", "Zoom out", "Slide show"};
    for (int i = 0; i < 6; ++i)
        scene.Child("BUTTON", tools[i], BS_PUSHBUTTON, 4 + 84 * i, 4, 80, 26, ui.get());
    return Photograph("photo");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::printf("usage: make_screen_corpus <output folder> <source folder> <photo>\n");
        return 2;
    }
    const std::string out = argv[1], sources = argv[2], photoPath = argv[3];
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)))
        return 1;
    INITCOMMONCONTROLSEX controls{sizeof controls, ICC_LISTVIEW_CLASSES};
    InitCommonControlsEx(&controls);
    Window::RegisterClassOnce(kSceneClass);
    SetCursorPos(GetSystemMetrics(SM_CXSCREEN) - 1, GetSystemMetrics(SM_CYSCREEN) - 1);
    int failed = 0;
    {
        const Picture photo = LoadPicture(photoPath);
        if (!photo.width) {
            std::printf("cannot read the photograph %s\n", photoPath.c_str());
            failed = 1;
        }
        SetNotepadFont();
        const std::string photoName = photoPath.substr(photoPath.find_last_of("\\/") + 1);
        std::vector<bench::Screenshot> shots;
        shots.push_back(
            ProgramScene("document", "write.exe \"" + sources + "\\lesson.rtf\"", "WordPadTop"));
        shots.push_back(ProgramScene(
            "code", "notepad.exe \"" + sources + "\\..\\..\\vantrel\\stream\\StreamEncoder.cpp\"",
            "Notepad"));
        shots.push_back(SpreadsheetScene());
        shots.push_back(WebPageScene(photo));
        shots.push_back(PhotoScene(photo, photoName));
        for (const bench::Screenshot& shot : shots)
            failed += shot.pixels.empty() || !Save(out, shot);
    }
    CoUninitialize();
    return failed ? 1 : 0;
}
