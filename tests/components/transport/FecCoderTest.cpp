// FecCoder created through CoCreateInstance, encoding as the caster does and decoding as the
// receiver does: every loss pattern the code must survive, one loss too many, and datagrams
// that are repeated, reordered, cut, flipped or not ours; then the call contract.
#include <windows.h>

#include <Transport.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "wincom/ComPtr.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
constexpr LONG kMaxPacket = 1412;
constexpr LONG kSentinel = static_cast<LONG>(0xDEADBEEF);

class Fec : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_HRESULT_SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        encoder_ = Create();
        decoder_ = Create();
        ASSERT_TRUE(encoder_ && decoder_);
        ASSERT_HRESULT_SUCCEEDED(decoder_->Configure(32, 0, kMaxPacket));
    }
    void TearDown() override {
        encoder_ = nullptr;
        decoder_ = nullptr;
        CoUninitialize();
    }

    static vantrel::ComPtr<IFecCoder> Create() {
        vantrel::ComPtr<IFecCoder> coder;
        EXPECT_HRESULT_SUCCEEDED(CoCreateInstance(CLSID_FecCoder, nullptr, CLSCTX_INPROC_SERVER,
                                                  IID_IFecCoder,
                                                  reinterpret_cast<void**>(coder.Put())));
        return coder;
    }

    static std::vector<Bytes> Copy(const FecBuffer* list, LONG count) {
        std::vector<Bytes> out;
        for (LONG i = 0; i < count; ++i)
            out.emplace_back(list[i].pbData, list[i].pbData + list[i].cbData);
        return out;
    }

    // Encodes the fragments, then drains: every datagram in sending order.
    std::vector<Bytes> EncodeAll(const std::vector<Bytes>& fragments) {
        std::vector<Bytes> datagrams;
        FecBuffer list[64];
        for (const Bytes& f : fragments) {
            LONG count = kSentinel;
            EXPECT_EQ(S_OK, encoder_->Encode(f.data(), static_cast<ULONG>(f.size()), list, &count));
            EXPECT_GE(count, 1);
            EXPECT_LE(count, 33);
            for (const Bytes& d : Copy(list, count))
                datagrams.push_back(d);
        }
        LONG count = kSentinel;
        EXPECT_EQ(S_OK, encoder_->Drain(list, &count));
        EXPECT_LE(count, 64);
        for (const Bytes& d : Copy(list, count))
            datagrams.push_back(d);
        return datagrams;
    }

    // Feeds the datagrams in order; every fragment handed back, in order. hr: what each gave.
    std::vector<Bytes> DecodeAll(const std::vector<Bytes>& datagrams,
                                 std::vector<HRESULT>* results = nullptr) {
        std::vector<Bytes> fragments;
        FecBuffer list[33];
        for (const Bytes& d : datagrams) {
            LONG count = kSentinel;
            const HRESULT hr =
                decoder_->Decode(d.empty() ? static_cast<const void*>(list) : d.data(),
                                 static_cast<ULONG>(d.size()), list, &count);
            EXPECT_TRUE(hr == S_OK || hr == S_FALSE) << std::hex << hr;
            EXPECT_GE(count, 0);
            EXPECT_LE(count, 33);
            if (hr == S_FALSE) {
                EXPECT_EQ(0, count);
            }
            if (results)
                results->push_back(hr);
            for (const Bytes& f : Copy(list, count))
                fragments.push_back(f);
        }
        return fragments;
    }

    vantrel::ComPtr<IFecCoder> encoder_;
    vantrel::ComPtr<IFecCoder> decoder_;
};

// Fragments of varied lengths (1 to the largest), each starting with a serial number so that a
// fragment handed back twice or in the wrong place is seen.
std::vector<Bytes> MakeFragments(int n, std::mt19937& rng, int serial = 0) {
    std::vector<Bytes> fragments;
    for (int i = 0; i < n; ++i) {
        const std::size_t length = i % 3 == 0 ? kMaxPacket : 4 + rng() % (kMaxPacket - 3);
        Bytes f(length);
        for (auto& b : f)
            b = static_cast<std::uint8_t>(rng());
        std::memcpy(f.data(), &serial, 4);
        ++serial;
        fragments.push_back(f);
    }
    return fragments;
}

std::vector<Bytes> Sorted(std::vector<Bytes> v) {
    std::sort(v.begin(), v.end(), [](const Bytes& a, const Bytes& b) {
        return std::memcmp(a.data(), b.data(), 4) < 0;
    });
    return v;
}

TEST_F(Fec, EveryLossPatternUpToTheRepairCountIsRestored) {
    // A partial group of 5 (Drain closes it): every subset of up to k of its 5 + k datagrams
    // is lost, the rest arrive shuffled.
    std::mt19937 rng(12);
    int patterns = 0;
    for (LONG k = 0; k <= 8; ++k) {
        ASSERT_EQ(S_OK, encoder_->Configure(32, k, kMaxPacket));
        const int total = 5 + k;
        for (std::uint32_t lost = 0; lost < (1u << total); ++lost) {
            if (__builtin_popcount(lost) > k)
                continue;
            const std::vector<Bytes> fragments = MakeFragments(5, rng, patterns * 8);
            const std::vector<Bytes> datagrams = EncodeAll(fragments);
            ASSERT_EQ(static_cast<std::size_t>(total), datagrams.size());
            std::vector<Bytes> arriving;
            for (int i = 0; i < total; ++i)
                if (!(lost & (1u << i)))
                    arriving.push_back(datagrams[i]);
            std::shuffle(arriving.begin(), arriving.end(), rng);
            ASSERT_EQ(fragments, Sorted(DecodeAll(arriving))) << "k " << k << " lost " << lost;
            ++patterns;
        }
    }
    EXPECT_EQ(12911, patterns);
}

TEST_F(Fec, RandomLossesInFullGroupsAreRestored) {
    std::mt19937 rng(7);
    for (LONG k : {1, 4, 8, 16, 31, 32}) {
        ASSERT_EQ(S_OK, encoder_->Configure(32, k, kMaxPacket));
        for (int round = 0; round < 6; ++round) {
            const std::vector<Bytes> fragments = MakeFragments(32, rng, (k * 8 + round) * 32);
            std::vector<Bytes> datagrams = EncodeAll(fragments);
            ASSERT_EQ(static_cast<std::size_t>(32 + k), datagrams.size());
            // round 0 loses the data only, round 1 the first k datagrams, then at random
            std::vector<int> order(datagrams.size());
            for (std::size_t i = 0; i < order.size(); ++i)
                order[i] = static_cast<int>(i);
            if (round == 0)
                std::rotate(order.begin(), order.begin() + 32 - k, order.begin() + 32);
            else if (round > 1)
                std::shuffle(order.begin(), order.end(), rng);
            std::vector<Bytes> arriving;
            for (std::size_t i = k; i < order.size(); ++i)
                arriving.push_back(datagrams[order[i]]);
            std::shuffle(arriving.begin(), arriving.end(), rng);
            ASSERT_EQ(fragments, Sorted(DecodeAll(arriving))) << "k " << k << " round " << round;
        }
    }
}

TEST_F(Fec, OneLossTooManyCostsThatGroupOnly) {
    std::mt19937 rng(3);
    for (LONG k : {0, 1, 4, 8}) {
        ASSERT_EQ(S_OK, encoder_->Configure(8, k, kMaxPacket));
        const std::vector<Bytes> fragments = MakeFragments(24, rng, k * 100);
        const std::vector<Bytes> datagrams = EncodeAll(fragments);
        const int perGroup = 8 + k;
        ASSERT_EQ(static_cast<std::size_t>(3 * perGroup), datagrams.size());
        // The middle group loses its first k + 1 datagrams (data first, then corrections).
        std::vector<Bytes> arriving;
        std::vector<Bytes> expected;
        for (int i = 0; i < 3 * perGroup; ++i) {
            const int group = i / perGroup, index = i % perGroup;
            if (group == 1 && index <= k)
                continue;
            arriving.push_back(datagrams[i]);
            if (index < 8)
                expected.push_back(fragments[group * 8 + index]);
        }
        EXPECT_EQ(static_cast<std::size_t>(16 + std::max(0, 7 - static_cast<int>(k))),
                  expected.size());
        EXPECT_EQ(expected, Sorted(DecodeAll(arriving))) << "k " << k;
    }
}

TEST_F(Fec, RepeatedCutFlippedAndForeignDatagramsAreIgnored) {
    std::mt19937 rng(5);
    ASSERT_EQ(S_OK, encoder_->Configure(32, 4, kMaxPacket));
    ASSERT_EQ(S_OK, encoder_->SetChecksum(TRUE));
    const std::vector<Bytes> fragments = MakeFragments(12, rng);
    const std::vector<Bytes> datagrams = EncodeAll(fragments);  // 12 data, 4 corrections
    ASSERT_EQ(16u, datagrams.size());

    Bytes foreignMagic = datagrams[3];
    foreignMagic[0] ^= 0x20;
    Bytes random(200);
    for (auto& b : random)
        b = static_cast<std::uint8_t>(rng());
    struct Case {
        const char* name;
        Bytes datagram;
    };
    std::vector<Case> damaged = {
        {"empty", {}},
        {"header only", Bytes(datagrams[0].begin(), datagrams[0].begin() + 24)},
        {"foreign signature", foreignMagic},
        {"random bytes", random}};
    // Every datagram cut short by one byte and grown by one, every one with a bit flipped (a
    // different bit each time, header and payload alike).
    for (std::size_t i = 0; i < datagrams.size(); ++i) {
        Bytes cut = datagrams[i];
        cut.pop_back();
        damaged.push_back({"cut", cut});
        Bytes grown = datagrams[i];
        grown.push_back(0);
        damaged.push_back({"grown", grown});
        for (int n = 0; n < 8; ++n) {
            Bytes flipped = datagrams[i];
            const std::size_t bit = rng() % (flipped.size() * 8);
            flipped[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
            damaged.push_back({"flipped", flipped});
        }
    }

    // Damaged datagrams first, then the good ones with four data datagrams lost, each good one
    // twice and the whole lot reversed: exactly the 12 fragments come out.
    for (const Case& c : damaged) {
        std::vector<HRESULT> results;
        EXPECT_TRUE(DecodeAll({c.datagram}, &results).empty()) << c.name;
        EXPECT_EQ(S_FALSE, results[0]) << c.name;
    }
    std::vector<Bytes> arriving;
    for (std::size_t i = 0; i < datagrams.size(); ++i) {
        if (i == 1 || i == 5 || i == 6 || i == 11)
            continue;
        arriving.push_back(datagrams[i]);
        arriving.push_back(datagrams[i]);
        arriving.push_back(damaged[4 + i * 10 + 2].datagram);  // a flipped copy
    }
    std::reverse(arriving.begin(), arriving.end());
    std::vector<HRESULT> results;
    EXPECT_EQ(fragments, Sorted(DecodeAll(arriving, &results)));
    EXPECT_EQ(12, std::count(results.begin(), results.end(), S_OK));
}

TEST_F(Fec, GroupsCloseAtTheirSizeOrWhenDrained) {
    FecBuffer list[64];
    const Bytes fragment(kMaxPacket, 0x5A);
    struct Case {
        LONG group, k;
        int fragments;
        std::vector<LONG> counts;  // Encode's per fragment, then Drain's
    };
    const Case cases[] = {
        {32, 0, 3, {1, 1, 1, 0}},
        {2, 3, 5, {1, 4, 1, 4, 1, 3}},
        {32, 32, 32, {}},  // filled below: 31 ones, 33, then 0
        {1, 1, 2, {2, 2, 0}},
    };
    for (Case c : cases) {
        if (c.counts.empty()) {
            c.counts.assign(31, 1);
            c.counts.push_back(33);
            c.counts.push_back(0);
        }
        ASSERT_EQ(S_OK, encoder_->Configure(c.group, c.k, kMaxPacket));
        std::vector<LONG> counts;
        for (int i = 0; i < c.fragments; ++i) {
            LONG count = kSentinel;
            ASSERT_EQ(S_OK, encoder_->Encode(fragment.data(), kMaxPacket, list, &count));
            for (LONG j = 0; j < count; ++j)
                EXPECT_LE(list[j].cbData, 1500u);  // fits the receiver's slot
            counts.push_back(count);
        }
        LONG count = kSentinel;
        ASSERT_EQ(S_OK, encoder_->Drain(list, &count));
        counts.push_back(count);
        EXPECT_EQ(c.counts, counts) << "group " << c.group << " k " << c.k;
    }
}

TEST_F(Fec, ArgumentsAreChecked) {
    struct Config {
        LONG group, k, max;
        HRESULT hr;
    };
    const Config configs[] = {{32, 0, 1412, S_OK},          {1, 32, 1, S_OK},
                              {32, 32, 4096, S_OK},         {0, 0, 1412, E_INVALIDARG},
                              {33, 0, 1412, E_INVALIDARG},  {32, -1, 1412, E_INVALIDARG},
                              {32, 33, 1412, E_INVALIDARG}, {32, 0, 0, E_INVALIDARG},
                              {32, 0, 4097, E_INVALIDARG}};
    for (const Config& c : configs)
        EXPECT_EQ(c.hr, encoder_->Configure(c.group, c.k, c.max)) << c.group << " " << c.k;

    ASSERT_EQ(S_OK, encoder_->Configure(32, 2, kMaxPacket));
    FecBuffer list[64];
    const Bytes fragment(kMaxPacket + 1, 1);
    LONG count = kSentinel;
    EXPECT_EQ(E_INVALIDARG, encoder_->Encode(fragment.data(), 0, list, &count));
    EXPECT_EQ(0, count);
    count = kSentinel;
    EXPECT_EQ(E_INVALIDARG, encoder_->Encode(fragment.data(), kMaxPacket + 1, list, &count));
    EXPECT_EQ(0, count);
    count = kSentinel;
    EXPECT_EQ(E_POINTER, encoder_->Encode(nullptr, 10, list, &count));
    EXPECT_EQ(0, count);
    EXPECT_EQ(E_POINTER, encoder_->Encode(fragment.data(), 10, nullptr, &count));
    EXPECT_EQ(E_POINTER, encoder_->Encode(fragment.data(), 10, list, nullptr));
    EXPECT_EQ(E_POINTER, decoder_->Decode(nullptr, 10, list, &count));
    EXPECT_EQ(E_POINTER, decoder_->Decode(fragment.data(), 10, nullptr, &count));
    EXPECT_EQ(E_POINTER, encoder_->Drain(list, nullptr));
    // Refused calls leave the group as it was: one fragment, then the two corrections.
    count = kSentinel;
    ASSERT_EQ(S_OK, encoder_->Encode(fragment.data(), 100, list, &count));
    EXPECT_EQ(1, count);
    ASSERT_EQ(S_OK, encoder_->Drain(list, &count));
    EXPECT_EQ(2, count);
}

TEST_F(Fec, ResetStartsANewStreamThatReceiversFollow) {
    std::mt19937 rng(9);
    ASSERT_EQ(S_OK, encoder_->Configure(4, 2, kMaxPacket));
    const std::vector<Bytes> first = MakeFragments(8, rng, 0);
    EXPECT_EQ(first, Sorted(DecodeAll(EncodeAll(first))));
    // The sender restarts (group numbers from 0 again): its datagrams are new, not repeats.
    ASSERT_EQ(S_OK, encoder_->Reset());
    const std::vector<Bytes> second = MakeFragments(8, rng, 100);
    std::vector<Bytes> datagrams = EncodeAll(second);
    datagrams.erase(datagrams.begin());  // and one is lost
    EXPECT_EQ(second, Sorted(DecodeAll(datagrams)));
    // A receiver's Reset forgets what it has seen: the same datagrams come out again.
    ASSERT_EQ(S_OK, decoder_->Reset());
    EXPECT_EQ(second, Sorted(DecodeAll(datagrams)));
}

}  // namespace
