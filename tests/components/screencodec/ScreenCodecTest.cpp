// ScreenCodec created through CoCreateInstance as Vantrel's objects create it. Any bytes
// round-trip and any block decodes without harm in the codec's fuzz target.
#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>

#include "common/ScreenTestSupport.h"

using namespace vantrel;
using namespace vantrel::test;

namespace {

using Bytes = std::vector<std::uint8_t>;

const ULONG kBufferSize = 0x180000;              // the largest frame payload
const ULONG kPacketCapacity = kBufferSize - 48;  // what a packet leaves for the block
const HRESULT kTooSmall = HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
const ULONG kSentinel = 0xDEADBEEF;

ULONG Size(const Bytes& v) {
    return static_cast<ULONG>(v.size());
}

// Null pointers are refused even for empty blocks; an empty vector's data() may be null.
const std::uint8_t* DataOf(const Bytes& v) {
    static const std::uint8_t kNothing = 0;
    return v.empty() ? &kNothing : v.data();
}

Bytes RandomBytes(std::size_t cb, unsigned seed) {
    std::mt19937 rng(seed);
    Bytes v(cb);
    std::generate(v.begin(), v.end(), [&] { return static_cast<std::uint8_t>(rng()); });
    return v;
}

enum class Content { Text, Photo, Photo565, TextAndPhoto565 };

// A frame payload as the encoder hands it over: a BITMAPINFOHEADER (and masks for 5-6-5), then
// the 16-bit rows of one band: text (few colours: the palette), a photograph (noisy waves: the
// delta filter) or both (the palette with escapes). The blocks in v1/, v2/ and v3/ hold these.
Bytes MakePayload(Content content, int width, int rows, unsigned seed, int desktopWidth = 0) {
    const bool is565 = content == Content::Photo565 || content == Content::TextAndPhoto565;
    BITMAPINFOHEADER h{};
    h.biSize = sizeof h;
    h.biWidth = desktopWidth;
    h.biBitCount = 16;
    h.biCompression = is565 ? BI_BITFIELDS : BI_RGB;
    Bytes out(reinterpret_cast<const std::uint8_t*>(&h),
              reinterpret_cast<const std::uint8_t*>(&h + 1));
    const DWORD masks[3] = {0xF800, 0x07E0, 0x001F};
    if (is565)
        out.insert(out.end(), reinterpret_cast<const std::uint8_t*>(masks),
                   reinterpret_cast<const std::uint8_t*>(masks + 3));
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0, 6);
    std::vector<int> glyphs(64 * 14 * 8);
    for (int& g : glyphs)
        g = rng() % 7 < 4 ? 0 : rng() % 4;
    auto wave = [&](double base, double swing) {
        return std::clamp(int(base + swing + noise(rng)), 0, 255);
    };
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < width; ++x) {
            unsigned p;
            if (content == Content::Text ||
                (content == Content::TextAndPhoto565 && x % 240 >= 40)) {
                const int glyph = ((x / 8) * 7 + (y / 15) * 13) % 64;
                const bool cell = y % 15 < 14 && (x / 8) % 9 != 8;
                const unsigned grey =
                    31 - 10 * (cell ? glyphs[(glyph * 14 + y % 15) * 8 + x % 8] : 0);
                p = grey << 10 | grey << 5 | grey;
            } else {
                const double u = x / 640.0, v = y / 480.0;
                const int r = wave(128, 80 * std::sin(6 * u + 2 * v)),
                          g = wave(110, 70 * std::sin(3 * u - 5 * v)),
                          b = wave(90, 60 * std::cos(4 * u + 7 * v));
                p = is565 ? (r >> 3) << 11 | (g >> 2) << 5 | b >> 3
                          : (r >> 3) << 10 | (g >> 3) << 5 | b >> 3;
            }
            out.insert(out.end(),
                       {static_cast<std::uint8_t>(p), static_cast<std::uint8_t>(p >> 8)});
        }
    }
    return out;
}

class Codec : public ScreenTest {
  protected:
    // Compress (mode 1 or 2) or Decompress (mode 0) of src into `capacity` bytes with guard
    // bytes behind them, through the 11th and 12th slot of the vtable, where Vantrel's callers
    // reach them: nothing may be written past the capacity, and a failure reports no bytes.
    static HRESULT Call(IScreenCodec* codec, const Bytes& src, ULONG mode, ULONG capacity,
                        Bytes* out) {
        using CompressFn =
            HRESULT(STDMETHODCALLTYPE*)(IScreenCodec*, const void*, ULONG, void*, ULONG*, ULONG);
        using DecompressFn =
            HRESULT(STDMETHODCALLTYPE*)(IScreenCodec*, const void*, ULONG, void*, ULONG*);
        void** vtable = *reinterpret_cast<void***>(codec);
        // Kept between calls (fresh pages for each of thousands of damaged blocks are slow), and
        // filled anew, so that no byte of an earlier call passes for one written now.
        thread_local Bytes buffer;
        buffer.resize(std::max<std::size_t>(buffer.size(), capacity + 256));
        std::fill(buffer.begin(), buffer.begin() + capacity + 256, 0xCD);
        ULONG cb = capacity;
        const HRESULT hr = mode ? reinterpret_cast<CompressFn>(vtable[10])(
                                      codec, DataOf(src), Size(src), buffer.data(), &cb, mode)
                                : reinterpret_cast<DecompressFn>(vtable[11])(
                                      codec, DataOf(src), Size(src), buffer.data(), &cb);
        EXPECT_TRUE(std::all_of(buffer.begin() + capacity, buffer.begin() + capacity + 256,
                                [](std::uint8_t b) { return b == 0xCD; }))
            << "capacity " << capacity;
        EXPECT_TRUE(SUCCEEDED(hr) ? cb <= capacity : cb == 0) << cb;
        out->assign(buffer.begin(), buffer.begin() + std::min(cb, capacity));
        return hr;
    }
    // On codec_ unless another object is given.
    HRESULT Compress(const Bytes& src, ULONG mode, ULONG capacity, Bytes* block,
                     IScreenCodec* codec = nullptr) {
        return Call(codec ? codec : codec_.Get(), src, mode, capacity, block);
    }
    HRESULT Decompress(const Bytes& block, ULONG capacity, Bytes* restored,
                       IScreenCodec* codec = nullptr) {
        return Call(codec ? codec : codec_.Get(), block, 0, capacity, restored);
    }

    // Decoders pass their full buffer or exactly the original length. Returns the block.
    Bytes ExpectRoundTrip(const Bytes& src, ULONG mode, IScreenCodec* codec = nullptr) {
        SCOPED_TRACE(testing::Message() << src.size() << " bytes, mode " << mode);
        codec = codec ? codec : codec_.Get();
        Bytes block, restored;
        EXPECT_EQ(S_OK, Compress(src, mode, kPacketCapacity, &block, codec));
        for (ULONG capacity : {kBufferSize, Size(src)}) {
            EXPECT_EQ(S_OK, Decompress(block, capacity, &restored, codec));
            EXPECT_TRUE(restored == src);
        }
        EXPECT_EQ(S_OK, codec->CheckBlock(DataOf(block), Size(block)));
        ULONG original = kSentinel, tag = kSentinel;
        EXPECT_EQ(S_OK, codec->GetOriginalSize(DataOf(block), Size(block), &original));
        EXPECT_EQ(src.size(), original);
        // Callers recognise a block by the tag it starts with.
        EXPECT_EQ(S_OK, codec->GetFormatTag(&tag));
        EXPECT_TRUE(block.size() >= 4 && std::memcmp(block.data(), &tag, 4) == 0);
        return block;
    }

    // Decompress and CheckBlock both refuse damaged input. Only damage inside a deflate body
    // may restore the same bytes (a copy from another distance inside a flat run): then pass
    // the original, and success is right when the bytes are.
    void ExpectRefused(const Bytes& block, const std::string& what,
                       const Bytes* original = nullptr) {
        Bytes restored;
        const HRESULT hr = Decompress(block, kBufferSize, &restored);
        EXPECT_EQ(SUCCEEDED(hr), SUCCEEDED(codec_->CheckBlock(DataOf(block), Size(block)))) << what;
        EXPECT_TRUE(FAILED(hr) || (original && restored == *original)) << what;
    }
};

class CodecMode : public Codec, public testing::WithParamInterface<ULONG> {};

TEST_P(CodecMode, PayloadsOfEveryShapeAndSizeRoundTripInTheCurrentFormat) {
    // Whole and narrower bands of each content, written in the current format (byte 4); the
    // first of each takes its transform (byte 6), or its paths go untested.
    const struct {
        Content content;
        int width, rows, desktop, filter;  // filter -1: any
    } bands[] = {{Content::Text, 1024, 40, 1024, 3},
                 {Content::Text, 1, 300, 1920, -1},
                 {Content::Photo, 1366, 30, 1366, 1},
                 {Content::Photo, 97, 101, 1920, -1},
                 {Content::Photo565, 1023, 33, 1280, 2},
                 {Content::Photo565, 15, 200, 1920, -1},
                 {Content::TextAndPhoto565, 1920, 24, 1920, 4},
                 {Content::TextAndPhoto565, 481, 37, 800, -1}};
    for (const auto& band : bands) {
        SCOPED_TRACE(testing::Message()
                     << band.width << "x" << band.rows << " of " << band.desktop);
        const Bytes block = ExpectRoundTrip(
            MakePayload(band.content, band.width, band.rows, band.width, band.desktop), GetParam());
        ASSERT_GT(block.size(), 6u);
        EXPECT_EQ(4, block[4]);
        EXPECT_EQ(band.filter < 0 ? block[6] : band.filter, block[6]);
    }
    // Noise is stored (method and filter 0).
    const Bytes stored = ExpectRoundTrip(RandomBytes(37000, 11), GetParam());
    EXPECT_EQ(0, stored.size() > 6 ? stored[5] | stored[6] : -1);
    // Nothing, one byte, cuts in the header and around the filter's chunks of 16384 pixels, a
    // full buffer.
    std::vector<Bytes> sizes = {Bytes(), Bytes(1, 0x5A)};
    const Bytes photo = MakePayload(Content::Photo, 1920, 20, 5);
    for (std::size_t cut : {1u, 39u, 40u, 41u, 42u, 43u, 40u + 32768u - 1, 40u + 32768u,
                            40u + 32768u + 1, 40u + 65536u + 3})
        sizes.emplace_back(photo.begin(), photo.begin() + cut);
    for (Content content : {Content::Text, Content::Photo}) {
        sizes.push_back(MakePayload(content, 1920, (kBufferSize - 40) / 3840, 9));
        sizes.back().resize(kBufferSize, 0x11);
    }
    for (const Bytes& src : sizes)
        EXPECT_EQ(4, ExpectRoundTrip(src, GetParam()).at(4));
}

INSTANTIATE_TEST_SUITE_P(Modes, CodecMode, testing::Values(1u, 2u),
                         [](const auto& info) { return "Mode" + std::to_string(info.param); });

// The advertised maximum and the block's own size suffice; below, a smaller block or
// ERROR_INSUFFICIENT_BUFFER (every call checks that nothing is written past the capacity).
TEST_F(Codec, CapacitiesAreNeverExceeded) {
    Bytes block, other;
    for (const Bytes& src : {MakePayload(Content::Text, 256, 40, 1), RandomBytes(3000, 2)}) {
        ULONG max = 0;
        ASSERT_EQ(S_OK, codec_->GetMaxCompressedSize(Size(src), &max));
        for (ULONG mode : {1u, 2u}) {
            ASSERT_EQ(S_OK, Compress(src, mode, max, &block));
            EXPECT_EQ(S_OK, Compress(src, mode, Size(block), &other));
            for (ULONG capacity : {ULONG{0}, ULONG{27}, Size(block) - 1}) {
                const HRESULT hr = Compress(src, mode, capacity, &other);
                EXPECT_TRUE(hr == S_OK || hr == kTooSmall) << capacity;
            }
            EXPECT_EQ(kTooSmall, Decompress(block, Size(src) - 1, &other));
        }
    }
    // A full buffer of noise may not fit a packet (the encoder then cuts the band shorter).
    const HRESULT hr = Compress(RandomBytes(kBufferSize, 21), 2, kPacketCapacity, &block);
    EXPECT_TRUE(hr == S_OK || hr == kTooSmall) << std::hex << hr;
}

// One refused argument per rule; a refused call leaves its out parameter alone.
TEST_F(Codec, ArgumentsAreChecked) {
    Bytes src = MakePayload(Content::Text, 64, 8, 1), dst(4096);
    ULONG cb = 4096, value = kSentinel;
    EXPECT_EQ(E_POINTER, codec_->Compress(src.data(), Size(src), nullptr, &cb, 2));
    EXPECT_EQ(E_INVALIDARG, codec_->Compress(src.data(), Size(src), dst.data(), &cb, 3));
    EXPECT_EQ(E_POINTER, codec_->Decompress(nullptr, 100, dst.data(), &cb));
    EXPECT_EQ(E_POINTER, codec_->GetOriginalSize(src.data(), Size(src), nullptr));
    EXPECT_EQ(E_INVALIDARG, codec_->GetMaxCompressedSize(0xFFFFFFFF, &value));
    EXPECT_EQ(E_INVALIDARG, codec_->GetLevel(0, &value));
    EXPECT_EQ(kSentinel, value);
    for (const auto& [mode, level] : {std::pair<ULONG, ULONG>{1, 0}, {1, 10}, {3, 5}})
        EXPECT_EQ(E_INVALIDARG, codec_->SetLevel(mode, level)) << mode << "," << level;
}

// Blocks made now (version 4) and of the earlier formats lesson files keep (v1/ deflate, v2/ and
// v3/ zstd) restore to their payload; flipped, cut or grown, they are refused.
TEST_F(Codec, BlocksOfEveryFormatRestoreAndDamagedOnesAreRefused) {
    const struct {
        const char* name;
        Bytes original;
        const char* versions;
    } vectors[] = {{"text-mode2", MakePayload(Content::Text, 256, 30, 7), "1234"},
                   {"photo-mode1", MakePayload(Content::Photo, 320, 24, 7), "124"},
                   {"photo565-mode2", MakePayload(Content::Photo565, 160, 20, 8), "12"},
                   {"photo-delta-mode2", MakePayload(Content::Photo, 640, 80, 9), "23"},
                   {"text-photo565-mode2", MakePayload(Content::TextAndPhoto565, 480, 40, 9), "34"},
                   {"stored", RandomBytes(300, 5), "1234"}};
    for (const auto& v : vectors) {
        for (const char* n = v.versions; *n; ++n) {
            const bool current = *n == '4';
            const std::string file = std::string("v") + *n + "\\" + v.name + ".vsc" + *n;
            SCOPED_TRACE(file);
            Bytes block, restored;
            if (current) {
                const ULONG mode = std::strstr(v.name, "mode1") ? 1 : 2;
                ASSERT_EQ(S_OK, Compress(v.original, mode, kPacketCapacity, &block));
            } else {
                std::ifstream in(VANTREL_CODEC_VECTORS_DIR "\\" + file, std::ios::binary);
                block.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
            }
            ASSERT_GT(block.size(), 28u);
            EXPECT_EQ(*n - '0', block[4]);
            EXPECT_EQ(S_OK, Decompress(block, kBufferSize, &restored));
            EXPECT_TRUE(restored == v.original);
            EXPECT_EQ(S_OK, codec_->CheckBlock(block.data(), Size(block)));
            const Bytes* same = current ? nullptr : &v.original;
            // Every bit of the fixed header (28 bytes) of the current format, then bits spread
            // over the rest (a prime step lands on every bit position of a byte in turn).
            for (std::size_t bit = 0; bit < 8 * block.size(); bit += current && bit < 8 * 28 ? 1
                                                                     : current               ? 389
                                                                               : 237) {
                Bytes damaged = block;
                damaged[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
                ExpectRefused(damaged, "bit " + std::to_string(bit), same);
                ULONG size = kSentinel;
                EXPECT_TRUE(!current || bit >= 8 * 28 ||
                            FAILED(codec_->GetOriginalSize(damaged.data(), Size(damaged), &size)))
                    << bit;
            }
            for (std::size_t cut = 0; cut < block.size(); cut += cut < 64 ? 1 : 131)
                ExpectRefused(Bytes(block.begin(), block.begin() + cut),
                              "cut " + std::to_string(cut), same);
            block.push_back(0);
            ExpectRefused(block, "one byte more", same);
        }
    }
    ExpectRefused(MakePayload(Content::Text, 64, 8, 1), "an uncompressed payload");
}

// Objects share no state: four at work at once, each made and used on a thread of its own and
// at levels of its own, changed between blocks (a change replaces the mode's stream).
TEST_F(Codec, ObjectsOnSeveralThreadsWorkAtOnceAtLevelsOfTheirOwn) {
    ULONG fast = kSentinel, level = kSentinel;
    ASSERT_EQ(S_OK, codec_->GetLevel(2, &fast));
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([this, t] {
            ASSERT_HRESULT_SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
            ComPtr<IScreenCodec> codec = Create<IScreenCodec>(CLSID_ScreenCodec);
            for (ULONG i = 0; codec && i < 9; ++i) {
                const ULONG mode = 1 + i % 2, set = (i + 4 * t) % 9 + 1;
                ULONG got = kSentinel;
                EXPECT_EQ(S_OK, codec->SetLevel(mode, set));
                EXPECT_EQ(S_OK, codec->GetLevel(mode, &got));
                EXPECT_EQ(set, got);
                ExpectRoundTrip(
                    MakePayload(i % 2 ? Content::Photo : Content::Text, 640, 40 + i, 100 * t + i),
                    mode, codec.Get());
            }
            codec.Reset();
            CoUninitialize();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(S_OK, codec_->GetLevel(2, &level));
    EXPECT_EQ(fast, level);
    // Hosts find the class by its ProgIDs (the registry rows are the shared server code's).
    for (const wchar_t* id : {L"Vantrel.ScreenCodec.1", L"Vantrel.ScreenCodec"}) {
        CLSID found{};
        ASSERT_EQ(S_OK, CLSIDFromProgID(id, &found));
        EXPECT_TRUE(IsEqualCLSID(CLSID_ScreenCodec, found));
    }
}

}  // namespace
