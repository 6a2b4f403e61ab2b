// ScreenCodec created through CoCreateInstance from the registered DLL, as Vantrel's objects
// create it: round trips on screen content and random data, the largest frame payload, and
// damaged, truncated and foreign blocks, with guard bytes behind every capacity.
#include <windows.h>

#include <ScreenCodec.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ScreenContent.h"
#include "platform/ComPtr.h"
#include "platform/UniqueHandle.h"

using screentest::Content;
using screentest::MakePayload;
using screentest::RandomBytes;
using Bytes = std::vector<std::uint8_t>;

namespace {

const ULONG kBufferSize = 0x180000;
const ULONG kFramePayloadCapacity = 0x180000 - 48;
const std::uint8_t kGuard = 0xCD;
const std::size_t kGuardBytes = 256;
const ULONG kSentinel = 0xDEADBEEF;

// Null pointers are refused even for empty blocks; an empty vector's data() may be null.
const std::uint8_t* DataOf(const std::vector<std::uint8_t>& v) {
    static const std::uint8_t kNothing = 0;
    return v.empty() ? &kNothing : v.data();
}

// A destination of `capacity` bytes followed by guard bytes the callee must not touch.
struct Guarded {
    explicit Guarded(std::size_t capacity)
        : bytes(capacity + kGuardBytes, kGuard), size(capacity) {}
    std::uint8_t* data() { return bytes.data(); }
    bool GuardIntact() const {
        return std::all_of(bytes.begin() + size, bytes.end(),
                           [](std::uint8_t b) { return b == kGuard; });
    }
    Bytes Prefix(std::size_t n) const { return Bytes(bytes.begin(), bytes.begin() + n); }
    Bytes bytes;
    std::size_t size;
};

class CodecTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_HRESULT_SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        ASSERT_HRESULT_SUCCEEDED(CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER,
                                                  IID_IScreenCodec, codec_.PutVoid()));
    }
    void TearDown() override {
        codec_.Reset();
        CoUninitialize();
    }

    Bytes Compress(const Bytes& src, ULONG mode, ULONG capacity = kFramePayloadCapacity) {
        Guarded out(capacity);
        ULONG cb = capacity;
        const HRESULT hr =
            codec_->Compress(DataOf(src), static_cast<ULONG>(src.size()), out.data(), &cb, mode);
        EXPECT_TRUE(out.GuardIntact());
        EXPECT_HRESULT_SUCCEEDED(hr);
        if (FAILED(hr))
            return Bytes();
        EXPECT_LE(cb, capacity);
        return out.Prefix(cb);
    }

    // Decompresses into exactly `capacity` bytes; the result code, and the restored bytes.
    HRESULT Decompress(const Bytes& block, ULONG capacity, Bytes* restored) {
        Guarded out(capacity);
        ULONG cb = capacity;
        const HRESULT hr =
            codec_->Decompress(block.data(), static_cast<ULONG>(block.size()), out.data(), &cb);
        EXPECT_TRUE(out.GuardIntact()) << "wrote past a capacity of " << capacity;
        if (SUCCEEDED(hr))
            *restored = out.Prefix(cb);
        if (FAILED(hr)) {
            EXPECT_EQ(0u, cb);
        }
        return hr;
    }

    void ExpectRoundTrip(const Bytes& src, ULONG mode) {
        const Bytes block = Compress(src, mode);
        ASSERT_FALSE(block.empty());
        Bytes restored;
        // The decoders always pass the full buffer; the exact length must do as well.
        for (ULONG capacity : {kBufferSize, static_cast<ULONG>(src.size())}) {
            ASSERT_EQ(S_OK, Decompress(block, capacity, &restored)) << "capacity " << capacity;
            ASSERT_TRUE(restored == src) << "mode " << mode << ", " << src.size() << " bytes";
        }
        EXPECT_EQ(S_OK, codec_->CheckBlock(block.data(), static_cast<ULONG>(block.size())));
        ULONG original = kSentinel;
        EXPECT_EQ(S_OK, codec_->GetOriginalSize(block.data(), static_cast<ULONG>(block.size()),
                                                &original));
        EXPECT_EQ(src.size(), original);
    }

    // Decompress and CheckBlock both refuse the block.
    void ExpectRefused(const Bytes& block, const std::string& what) {
        Bytes restored;
        EXPECT_TRUE(FAILED(Decompress(block, kBufferSize, &restored))) << what;
        EXPECT_TRUE(FAILED(codec_->CheckBlock(block.data(), static_cast<ULONG>(block.size()))))
            << what;
    }

    // Damage inside the deflate body can leave the restored bytes unchanged (a copy from
    // another distance inside a flat run): then success is right. Anything else is refused.
    void ExpectRefusedOrExact(const Bytes& block, const Bytes& original, const std::string& what) {
        Bytes restored;
        const HRESULT hr = Decompress(block, kBufferSize, &restored);
        if (SUCCEEDED(hr)) {
            EXPECT_TRUE(restored == original) << what << ": wrong bytes reported as restored";
        }
        EXPECT_EQ(SUCCEEDED(hr),
                  SUCCEEDED(codec_->CheckBlock(block.data(), static_cast<ULONG>(block.size()))))
            << what;
    }

    vantrel::ComPtr<IScreenCodec> codec_;
};

struct RoundTripCase {
    const char* name;
    Content content;
    int width, rows;
};

void PrintTo(const RoundTripCase& c, std::ostream* os) {
    *os << c.name;
}

class CodecRoundTrip : public CodecTest,
                       public testing::WithParamInterface<std::tuple<RoundTripCase, ULONG>> {};

TEST_P(CodecRoundTrip, RestoresEveryByte) {
    const RoundTripCase& c = std::get<0>(GetParam());
    const ULONG mode = std::get<1>(GetParam());
    const Bytes src = c.content == Content::Random
                          ? RandomBytes(static_cast<std::size_t>(c.width) * c.rows, 11)
                          : MakePayload(c.content, c.width, c.rows, 3);
    ExpectRoundTrip(src, mode);
    // The payloads that the pixel filter is for must take it, or its path goes untested.
    if (c.content == Content::Photo || c.content == Content::Photo565) {
        const Bytes block = Compress(src, mode);
        ASSERT_GT(block.size(), 7u);
        EXPECT_NE(0, block[6]) << "photo-like rows were not filtered";
    }
}

const RoundTripCase kRoundTrips[] = {
    {"Text", Content::Text, 1024, 200},        {"Flat", Content::Flat, 1920, 100},
    {"Gradient", Content::Gradient, 800, 300}, {"Photo", Content::Photo, 640, 120},
    {"Photo565", Content::Photo565, 640, 120}, {"OddWidthPhoto", Content::Photo, 1366, 57},
    {"OneRowBand", Content::Text, 8, 1},       {"RandomBytes", Content::Random, 1000, 37},
};

INSTANTIATE_TEST_SUITE_P(Content, CodecRoundTrip,
                         testing::Combine(testing::ValuesIn(kRoundTrips), testing::Values(1u, 2u)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_Mode" +
                                    std::to_string(std::get<1>(info.param));
                         });

TEST_F(CodecTest, SmallAndOddLengthsRoundTrip) {
    const Bytes photo = MakePayload(Content::Photo, 1920, 20, 5);
    for (ULONG mode : {1u, 2u}) {
        ExpectRoundTrip(Bytes(), mode);
        ExpectRoundTrip(Bytes(1, 0x5A), mode);
        // Cut the payload inside its header, at an odd byte, and around the filter's chunks.
        for (std::size_t cut : {1u, 39u, 40u, 41u, 42u, 43u, 40u + 32768u - 1, 40u + 32768u,
                                40u + 32768u + 1, 40u + 65536u + 3})
            ExpectRoundTrip(Bytes(photo.begin(), photo.begin() + cut), mode);
    }
}

TEST_F(CodecTest, LargestFramePayloadFitsItsPacket) {
    // 409 rows of 1920 pixels: the band a full 16-bit screen is cut into.
    const ULONG rows = (kBufferSize - 40) / 3840;
    for (Content content : {Content::Text, Content::Photo}) {
        Bytes src = MakePayload(content, 1920, rows, 9);
        src.resize(kBufferSize, 0x11);  // the last bytes of the buffer too
        for (ULONG mode : {1u, 2u})
            ExpectRoundTrip(src, mode);
    }
}

TEST_F(CodecTest, IncompressibleBlockThatDoesNotFitFailsWithoutOverrun) {
    const Bytes src = RandomBytes(kBufferSize, 21);
    for (ULONG mode : {1u, 2u}) {
        Guarded out(kFramePayloadCapacity);
        ULONG cb = kFramePayloadCapacity;
        EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER),
                  codec_->Compress(src.data(), kBufferSize, out.data(), &cb, mode));
        EXPECT_EQ(0u, cb);
        EXPECT_TRUE(out.GuardIntact());
    }
}

TEST_F(CodecTest, CompressHonoursEveryCapacity) {
    for (const Bytes& src : {MakePayload(Content::Text, 256, 40, 1), RandomBytes(3000, 2)}) {
        ULONG max = 0;
        ASSERT_EQ(S_OK, codec_->GetMaxCompressedSize(static_cast<ULONG>(src.size()), &max));
        for (ULONG mode : {1u, 2u}) {
            const Bytes block = Compress(src, mode, max);
            ASSERT_FALSE(block.empty());
            // The exact size still works; one byte less must fail (or find a smaller block).
            Compress(src, mode, static_cast<ULONG>(block.size()));
            for (ULONG capacity :
                 {ULONG{0}, ULONG{1}, ULONG{27}, static_cast<ULONG>(block.size() - 1)}) {
                Guarded out(capacity);
                ULONG cb = capacity;
                const HRESULT hr = codec_->Compress(src.data(), static_cast<ULONG>(src.size()),
                                                    out.data(), &cb, mode);
                EXPECT_TRUE(out.GuardIntact()) << "capacity " << capacity;
                if (SUCCEEDED(hr))
                    EXPECT_LE(cb, capacity);
                else
                    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER), hr);
            }
        }
    }
}

TEST_F(CodecTest, DecompressRefusesACapacityBelowTheOriginalLength) {
    const Bytes src = MakePayload(Content::Gradient, 320, 50, 4);
    const Bytes block = Compress(src, 2);
    Bytes restored;
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER),
              Decompress(block, static_cast<ULONG>(src.size() - 1), &restored));
    EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER), Decompress(block, 0, &restored));
}

TEST_F(CodecTest, DamagedTruncatedAndForeignBlocksAreRefused) {
    // A filtered deflate block, a plain deflate block and a stored block.
    const Bytes originals[] = {MakePayload(Content::Photo, 640, 60, 8),
                               MakePayload(Content::Text, 512, 60, 8), RandomBytes(700, 8)};
    const ULONG modes[] = {1, 2, 2};
    for (int i = 0; i < 3; ++i) {
        const Bytes& original = originals[i];
        const Bytes block = Compress(original, modes[i]);
        ASSERT_GT(block.size(), 64u);
        const std::size_t headerBits = 8 * 28;
        // Every bit of the fixed header, then bits spread over the rest.
        for (std::size_t bit = 0; bit < 8 * block.size(); bit += bit < headerBits ? 1 : 37) {
            Bytes damaged = block;
            damaged[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
            const std::string what = "block " + std::to_string(i) + " bit " + std::to_string(bit);
            if (bit >= headerBits) {
                ExpectRefusedOrExact(damaged, original, what);
                continue;
            }
            ExpectRefused(damaged, what);
            ULONG size = kSentinel;
            EXPECT_TRUE(FAILED(
                codec_->GetOriginalSize(damaged.data(), static_cast<ULONG>(damaged.size()), &size)))
                << what;
        }
        for (std::size_t cut = 0; cut < block.size(); cut += cut < 64 ? 1 : 131)
            ExpectRefused(Bytes(block.begin(), block.begin() + cut),
                          "cut at " + std::to_string(cut));
        Bytes longer = block;
        longer.push_back(0);
        ExpectRefused(longer, "one byte more");
    }
    // A stored block whose body no longer matches its check value.
    Bytes stored = Compress(RandomBytes(300, 4), 2);
    stored.back() ^= 0x80;
    ExpectRefused(stored, "stored body");
    ExpectRefused(RandomBytes(5000, 30), "random bytes");
    ExpectRefused(MakePayload(Content::Text, 64, 8, 1), "an uncompressed payload");
}

TEST_F(CodecTest, ArgumentsAreChecked) {
    Bytes src = MakePayload(Content::Text, 64, 8, 1), dst(4096);
    const ULONG cbSrc = static_cast<ULONG>(src.size());
    ULONG cb = 4096, value = kSentinel;
    EXPECT_EQ(E_POINTER, codec_->Compress(nullptr, cbSrc, dst.data(), &cb, 2));
    cb = 4096;
    EXPECT_EQ(E_POINTER, codec_->Compress(src.data(), cbSrc, nullptr, &cb, 2));
    EXPECT_EQ(E_POINTER, codec_->Compress(src.data(), cbSrc, dst.data(), nullptr, 2));
    for (ULONG mode : {0u, 3u, 0xFFFFFFFFu}) {
        cb = 4096;
        EXPECT_EQ(E_INVALIDARG, codec_->Compress(src.data(), cbSrc, dst.data(), &cb, mode));
    }
    const Bytes block = Compress(src, 2);
    const ULONG cbBlock = static_cast<ULONG>(block.size());
    cb = 4096;
    EXPECT_EQ(E_POINTER, codec_->Decompress(nullptr, cbBlock, dst.data(), &cb));
    cb = 4096;
    EXPECT_EQ(E_POINTER, codec_->Decompress(block.data(), cbBlock, nullptr, &cb));
    EXPECT_EQ(E_POINTER, codec_->Decompress(block.data(), cbBlock, dst.data(), nullptr));
    EXPECT_EQ(E_POINTER, codec_->CheckBlock(nullptr, cbBlock));
    EXPECT_EQ(E_POINTER, codec_->GetOriginalSize(nullptr, cbBlock, &value));
    EXPECT_EQ(E_POINTER, codec_->GetOriginalSize(block.data(), cbBlock, nullptr));
    EXPECT_EQ(E_POINTER, codec_->GetVersion(nullptr));
    EXPECT_EQ(E_POINTER, codec_->GetFormatTag(nullptr));
    EXPECT_EQ(E_POINTER, codec_->GetMaxCompressedSize(10, nullptr));
    EXPECT_EQ(E_POINTER, codec_->GetLevel(1, nullptr));
    EXPECT_EQ(E_INVALIDARG, codec_->GetMaxCompressedSize(0xFFFFFFFF, &value));
}

TEST_F(CodecTest, DescribesItsOwnBlocks) {
    ULONG tag = kSentinel, version = kSentinel;
    ASSERT_EQ(S_OK, codec_->GetFormatTag(&tag));
    ASSERT_EQ(S_OK, codec_->GetVersion(&version));
    EXPECT_NE(0u, version);
    for (ULONG mode : {1u, 2u}) {
        const Bytes block = Compress(RandomBytes(100, mode), mode);
        ASSERT_GE(block.size(), 4u);
        EXPECT_EQ(tag,
                  block[0] | block[1] << 8 | block[2] << 16 | static_cast<ULONG>(block[3]) << 24);
    }
}

TEST_F(CodecTest, LevelsArePerModeAndPerObject) {
    ULONG level = kSentinel;
    ASSERT_EQ(S_OK, codec_->GetLevel(2, &level));
    const ULONG fast = level;
    ASSERT_EQ(S_OK, codec_->GetLevel(1, &level));
    EXPECT_GT(level, fast) << "mode 1 is the stronger one";
    for (ULONG bad : {0u, 10u})
        EXPECT_EQ(E_INVALIDARG, codec_->SetLevel(1, bad));
    EXPECT_EQ(E_INVALIDARG, codec_->SetLevel(3, 5));
    EXPECT_EQ(E_INVALIDARG, codec_->GetLevel(0, &level));

    const Bytes src = MakePayload(Content::Text, 800, 100, 6);
    for (ULONG l = 1; l <= 9; ++l) {
        ASSERT_EQ(S_OK, codec_->SetLevel(2, l));
        ASSERT_EQ(S_OK, codec_->GetLevel(2, &level));
        EXPECT_EQ(l, level);
        ExpectRoundTrip(src, 2);
    }
    vantrel::ComPtr<IScreenCodec> other;
    ASSERT_HRESULT_SUCCEEDED(CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER,
                                              IID_IScreenCodec, other.PutVoid()));
    ASSERT_EQ(S_OK, other->GetLevel(2, &level));
    EXPECT_EQ(fast, level);
}

// Vantrel's callers reach Compress and Decompress by their vtable position, not by name.
TEST_F(CodecTest, CompressAndDecompressAreSlots11And12) {
    using CompressFn =
        HRESULT(STDMETHODCALLTYPE*)(IScreenCodec*, const void*, ULONG, void*, ULONG*, ULONG);
    using DecompressFn =
        HRESULT(STDMETHODCALLTYPE*)(IScreenCodec*, const void*, ULONG, void*, ULONG*);
    void** vtable = *reinterpret_cast<void***>(codec_.Get());
    auto compress = reinterpret_cast<CompressFn>(vtable[10]);
    auto decompress = reinterpret_cast<DecompressFn>(vtable[11]);
    const Bytes src = MakePayload(Content::Flat, 640, 40, 2);
    Bytes block(kFramePayloadCapacity), restored(kBufferSize);
    ULONG cb = kFramePayloadCapacity;
    ASSERT_EQ(S_OK, compress(codec_.Get(), src.data(), static_cast<ULONG>(src.size()), block.data(),
                             &cb, 2));
    ULONG out = kBufferSize;
    ASSERT_EQ(S_OK, decompress(codec_.Get(), block.data(), cb, restored.data(), &out));
    ASSERT_EQ(src.size(), out);
    EXPECT_TRUE(std::equal(src.begin(), src.end(), restored.begin()));
}

struct Worker {
    unsigned seed;
    volatile LONG* failures;
};

DWORD WINAPI RoundTripsOnOwnObject(void* arg) {
    const Worker* w = static_cast<Worker*>(arg);
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return InterlockedIncrement(w->failures);
    {
        vantrel::ComPtr<IScreenCodec> codec;
        if (FAILED(CoCreateInstance(CLSID_ScreenCodec, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_IScreenCodec, codec.PutVoid())))
            InterlockedIncrement(w->failures);
        Bytes block(kFramePayloadCapacity), restored(kBufferSize);
        for (int i = 0; codec && i < 6; ++i) {
            const Bytes src =
                MakePayload(i % 2 ? Content::Photo : Content::Text, 640, 40 + i, w->seed + i);
            ULONG cb = kFramePayloadCapacity, out = kBufferSize;
            const ULONG mode = 1 + i % 2;
            if (codec->Compress(src.data(), static_cast<ULONG>(src.size()), block.data(), &cb,
                                mode) != S_OK ||
                codec->Decompress(block.data(), cb, restored.data(), &out) != S_OK ||
                out != src.size() || !std::equal(src.begin(), src.end(), restored.begin()))
                InterlockedIncrement(w->failures);
        }
    }
    CoUninitialize();
    return 0;
}

TEST_F(CodecTest, ObjectsOnSeveralThreadsWorkAtOnce) {
    volatile LONG failures = 0;
    Worker workers[4];
    vantrel::UniqueThread threads[4];
    HANDLE handles[4];
    for (int i = 0; i < 4; ++i) {
        workers[i] = {static_cast<unsigned>(100 * i), &failures};
        threads[i].reset(CreateThread(nullptr, 0, RoundTripsOnOwnObject, &workers[i], 0, nullptr));
        ASSERT_TRUE(threads[i]);
        handles[i] = threads[i].get();
    }
    ASSERT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(4, handles, TRUE, 100000));
    EXPECT_EQ(0, failures);
}

}  // namespace
