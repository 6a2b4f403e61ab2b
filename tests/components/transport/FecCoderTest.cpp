// FecCoder through CoCreateInstance, encoding as the caster does and decoding as the receiver
// does: damaged and stray datagrams, the end of a burst, the call contract. Restored losses and
// the order fragments leave in are the FEC fuzz target's; through the lossy relay, tests/cast.
#include <windows.h>

#include <Transport.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "FecDatagram.h"
#include "common/ComTest.h"
#include "wincom/ComPtr.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using Labels = std::vector<std::string>;
constexpr LONG kMaxPacket = 1412;
constexpr LONG kSentinel = static_cast<LONG>(0xDEADBEEF);

int Serial(const Bytes& fragment) {
    int serial = 0;
    std::memcpy(&serial, fragment.data(), 4);
    return serial;
}

std::vector<int> Serials(const std::vector<Bytes>& fragments) {
    std::vector<int> serials;
    for (const Bytes& f : fragments)
        serials.push_back(Serial(f));
    return serials;
}

// "0-3,7" -> 0 1 2 3 7.
std::vector<int> Range(const std::string& text) {
    std::vector<int> v;
    std::istringstream in(text);
    for (std::string item; std::getline(in, item, ',');) {
        const std::size_t dash = item.find('-');
        const int to = std::stoi(dash == std::string::npos ? item : item.substr(dash + 1));
        for (int i = std::stoi(item); i <= to; ++i)
            v.push_back(i);
    }
    return v;
}

bool Listed(const std::string& spaced, const std::string& label) {
    return (" " + spaced + " ").find(" " + label + " ") != std::string::npos;
}

// Fragments of varied lengths (1 to the largest, or all of `length`), each starting with its
// serial number so that one handed back twice or in the wrong place is seen.
std::vector<Bytes> MakeFragments(int n, std::mt19937& rng, int serial, std::size_t length = 0) {
    std::vector<Bytes> fragments;
    for (int i = 0; i < n; ++i) {
        Bytes f(length ? length : i % 3 == 0 ? kMaxPacket : 4 + rng() % (kMaxPacket - 3));
        for (auto& b : f)
            b = static_cast<std::uint8_t>(rng());
        const int s = serial + i;
        std::memcpy(f.data(), &s, 4);
        fragments.push_back(f);
    }
    return fragments;
}

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
        return vantrel::test::Create<IFecCoder>(CLSID_FecCoder);
    }

    // Encodes the fragments, then drains: every datagram in sending order. labels (optional)
    // names each: "d<serial>" for a fragment's own, "r<group>.<j>" for a correction,
    // "m<group>.<i>" for an end mark, groups counted from firstGroup.
    std::vector<Bytes> EncodeAll(const std::vector<Bytes>& fragments, Labels* labels = nullptr,
                                 IFecCoder* encoder = nullptr, int firstGroup = 0) {
        if (!encoder)
            encoder = encoder_.Get();
        std::vector<Bytes> datagrams;
        FecBuffer list[64];
        auto add = [&](LONG count) {
            for (LONG i = 0; i < count; ++i) {
                datagrams.emplace_back(list[i].pbData, list[i].pbData + list[i].cbData);
                if (labels)
                    labels->push_back(Label(datagrams.back(), firstGroup));
            }
        };
        for (const Bytes& f : fragments) {
            LONG count = kSentinel;
            EXPECT_EQ(S_OK, encoder->Encode(f.data(), static_cast<ULONG>(f.size()), list, &count));
            EXPECT_GE(count, 1);
            EXPECT_LE(count, 33);
            add(count);
        }
        LONG count = kSentinel;
        EXPECT_EQ(S_OK, encoder->Drain(list, &count));
        EXPECT_LE(count, 64);
        add(count);
        return datagrams;
    }
    static std::string Label(const Bytes& d, int firstGroup) {
        transport::FecHeader h;
        if (!transport::ParseFecDatagram(d.data(), d.size(), kMaxPacket, &h))
            return "?";
        if (!h.repair && h.payloadLength)
            return "d" +
                   std::to_string(Serial(Bytes(d.begin() + transport::kFecHeaderSize, d.end())));
        return (h.repair ? "r" : "m") + std::to_string(h.group - firstGroup) + "." +
               std::to_string(h.index);
    }
    // Bursts of 40-byte fragments (serials from 0), each drained; the second may be 0: none.
    std::vector<Bytes> EncodeBursts(int first, int second, std::mt19937& rng, Labels* labels,
                                    int firstGroup = 0) {
        std::vector<Bytes> datagrams;
        int serial = 0;
        for (int n : {first, second}) {
            if (!n)
                break;
            for (Bytes& d :
                 EncodeAll(MakeFragments(n, rng, serial, 40), labels, nullptr, firstGroup))
                datagrams.push_back(std::move(d));
            serial += n;
        }
        return datagrams;
    }

    // One datagram in; the fragments handed back, in order. hr: what Decode gave.
    std::vector<Bytes> DecodeOne(const Bytes& d, HRESULT* hr = nullptr) {
        FecBuffer list[33];
        LONG count = kSentinel;
        const HRESULT r = decoder_->Decode(d.empty() ? static_cast<const void*>(list) : d.data(),
                                           static_cast<ULONG>(d.size()), list, &count);
        EXPECT_TRUE(r == S_OK || (r == S_FALSE && count == 0)) << std::hex << r << " " << count;
        EXPECT_GE(count, 0);
        EXPECT_LE(count, 33);
        if (hr)
            *hr = r;
        std::vector<Bytes> out;
        for (LONG i = 0; i < count; ++i)
            out.emplace_back(list[i].pbData, list[i].pbData + list[i].cbData);
        return out;
    }
    std::vector<Bytes> DecodeAll(const std::vector<Bytes>& datagrams) {
        std::vector<Bytes> fragments;
        for (const Bytes& d : datagrams)
            for (Bytes& f : DecodeOne(d))
                fragments.push_back(std::move(f));
        return fragments;
    }

    vantrel::ComPtr<IFecCoder> encoder_;
    vantrel::ComPtr<IFecCoder> decoder_;
};

// With checksums, a datagram cut, grown or with any bit flipped is refused; repeats count once.
TEST_F(Fec, RepeatedCutFlippedAndForeignDatagramsAreIgnored) {
    std::mt19937 rng(5);
    ASSERT_EQ(S_OK, encoder_->Configure(32, 4, kMaxPacket));
    ASSERT_EQ(S_OK, encoder_->SetChecksum(TRUE));
    const std::vector<Bytes> fragments = MakeFragments(12, rng, 0);
    const std::vector<Bytes> datagrams = EncodeAll(fragments);  // 12 data, 4 corrections, 2 marks
    ASSERT_EQ(18u, datagrams.size());
    std::vector<Bytes> damaged = {{}, MakeFragments(1, rng, 0, 200)[0]};
    for (const Bytes& d : datagrams) {
        damaged.push_back(Bytes(d.begin(), d.end() - 1));
        damaged.push_back(d);
        damaged.back().push_back(0);
        for (int n = 0; n < 6; ++n) {
            Bytes flipped = d;
            const std::size_t bit = rng() % (flipped.size() * 8);
            flipped[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
            damaged.push_back(flipped);
        }
    }
    for (std::size_t i = 0; i < damaged.size(); ++i) {
        HRESULT hr;
        EXPECT_TRUE(DecodeOne(damaged[i], &hr).empty()) << i;
        EXPECT_EQ(S_FALSE, hr) << i;
    }
    // As many data datagrams lost as there are corrections, the rest twice.
    std::vector<Bytes> arriving;
    for (std::size_t i = 0; i < datagrams.size(); ++i)
        if (i != 1 && i != 5 && i != 6 && i != 11)
            arriving.insert(arriving.end(), {datagrams[i], datagrams[i]});
    EXPECT_EQ(fragments, DecodeAll(arriving));
}

// What waits behind a gap at a burst's end is freed by the end marks where the stream kept its
// order (a long burst came in order first), else by the next burst's first datagram. One loss
// more than a group's corrections costs that group's rest only.
TEST_F(Fec, TheEndOfABurstReleasesWhatWaitsBehindAGap) {
    struct Scenario {
        const char* name;
        LONG group, k;
        bool ordered;     // 70 fragments arrive in order first
        int burst, next;  // fragments per Drain
        std::string lost;
        std::string late;   // arrives after the datagram sent next
        std::string until;  // the last to arrive; all when empty
        std::string out;
    };
    const Scenario scenarios[] = {
        {"the gap's corrections lost too", 8, 2, true, 5, 0, "d2 r0.0 r0.1", "", "", "0-1,3-4"},
        {"a group closed at its size", 4, 2, true, 8, 0, "d5 r1.0 r1.1", "", "", "0-4,6-7"},
        {"a correction one place late", 8, 2, true, 5, 0, "d2 r0.0", "r0.1", "", "0-4"},
        {"order not trusted yet", 8, 2, false, 5, 0, "d2 r0.0 r0.1", "", "", "0-1"},
        {"the next burst", 8, 2, false, 5, 3, "d2 r0.0 r0.1", "", "d5", "0-1,3-5"},
        {"the end marks lost too", 8, 2, true, 5, 3, "d2 r0.0 r0.1 m0.0 m0.1", "", "d5", "0-1,3-5"},
        {"one loss too many, k 4", 8, 4, false, 24, 0, "d8 d9 d10 d11 d12", "", "", "0-7,13-23"},
    };
    std::mt19937 rng(4);
    for (const Scenario& s : scenarios) {
        SCOPED_TRACE(s.name);
        ASSERT_EQ(S_OK, encoder_->Configure(s.group, s.k, kMaxPacket));
        ASSERT_EQ(S_OK, decoder_->Reset());
        int base = 0;
        if (s.ordered) {
            base = (70 + s.group - 1) / s.group;
            ASSERT_EQ(70u, DecodeAll(EncodeAll(MakeFragments(70, rng, 1000, 40))).size());
        }
        Labels labels;
        const std::vector<Bytes> datagrams = EncodeBursts(s.burst, s.next, rng, &labels, base);
        std::vector<std::size_t> order;
        for (std::size_t i = 0; i < labels.size(); ++i) {
            if (!Listed(s.lost, labels[i]))
                order.push_back(i);
            if (labels[i] == s.until)
                break;
        }
        for (std::size_t i = 0; i + 1 < order.size(); ++i) {
            if (labels[order[i]] == s.late) {
                std::swap(order[i], order[i + 1]);
                break;
            }
        }
        std::vector<int> out;
        for (std::size_t i : order)
            for (int serial : Serials(DecodeOne(datagrams[i])))
                out.push_back(serial);
        EXPECT_EQ(Range(s.out), out);
    }
}

// Without checksums, one datagram far from where the stream is (a damaged group number, a
// forged or stray one) does not take the stream over; four in a row that agree on another place
// move it there, and they are not lost.
TEST_F(Fec, ADatagramOutOfPlaceIsNotTrustedAloneAndFourInARowMoveTheStream) {
    const vantrel::ComPtr<IFecCoder> other = Create();
    ASSERT_TRUE(other);
    std::mt19937 rng(6);
    for (LONG k : {2, 0}) {
        SCOPED_TRACE(k);
        ASSERT_EQ(S_OK, encoder_->Configure(4, k, kMaxPacket));
        ASSERT_EQ(S_OK, other->Configure(4, k, kMaxPacket));
        Labels labels;
        const std::vector<Bytes> a = EncodeAll(MakeFragments(16, rng, 0, 40), &labels);
        EncodeAll(MakeFragments(80, rng, 1000, 40));  // 20 groups that never arrive
        const std::vector<Bytes> beyond = EncodeAll(MakeFragments(8, rng, 200, 40));
        const std::vector<Bytes> b =
            EncodeAll(MakeFragments(8, rng, 100, 40), nullptr, other.Get());
        const std::size_t d6 = std::find(labels.begin(), labels.end(), "d6") - labels.begin();
        const std::size_t d7 = std::find(labels.begin(), labels.end(), "d7") - labels.begin();
        transport::FecHeader h;
        ASSERT_TRUE(transport::ParseFecDatagram(a[d6].data(), a[d6].size(), kMaxPacket, &h));
        ASSERT_FALSE(h.checksum);
        Bytes flipped = a[d6];
        flipped[11] ^= 0x40;  // the group number's top byte
        Bytes ahead = a[d6];
        transport::FecHeader moved = h;
        moved.group += 100000;
        transport::WriteFecHeader(ahead.data(), moved);
        // a with `inserted` placed before a[at].
        auto into = [&](std::size_t at, const std::vector<Bytes>& inserted) {
            std::vector<Bytes> v = a;
            v.insert(v.begin() + at, inserted.begin(), inserted.end());
            return v;
        };
        std::vector<Bytes> strayed = into(d7 + 1, {b[0]});
        strayed.erase(strayed.begin() + d6);

        struct Scenario {
            const char* name;
            std::vector<Bytes> arrivals;
            std::string out;
            std::size_t checkAt;  // the out so far after this many arrivals (0: none)
            std::string outAt;
        };
        const Scenario scenarios[] = {
            {"a group number far ahead, flipped or forged", into(d6, {flipped, ahead}), "0-15", 0,
             ""},
            {"a stray datagram of another session", strayed, k ? "0-15" : "0-5,7-15", 0, ""},
            {"a restarted caster", into(a.size(), b), "0-15,100-107", a.size() + 4, "0-15,100-103"},
            {"the stream beyond a long loss", into(a.size(), beyond), "0-15,200-207", 0, ""},
        };
        for (const Scenario& s : scenarios) {
            SCOPED_TRACE(s.name);
            ASSERT_EQ(S_OK, decoder_->Reset());
            std::vector<int> out;
            for (std::size_t i = 0; i < s.arrivals.size(); ++i) {
                for (int serial : Serials(DecodeOne(s.arrivals[i])))
                    out.push_back(serial);
                if (i + 1 == s.checkAt) {
                    EXPECT_EQ(Range(s.outAt), out);
                }
            }
            EXPECT_EQ(Range(s.out), out);
        }
    }
}

// Groups close at their size or when drained, and a drain ends the burst with two end marks
// (with corrections configured) unless one already did; out-of-range configurations and
// arguments are refused and leave the group being built as it was.
TEST_F(Fec, GroupsCloseAtTheirSizeOrWhenDrainedAndArgumentsAreChecked) {
    FecBuffer list[64];
    const Bytes fragment(kMaxPacket + 1, 0x5A);
    struct Case {
        LONG group, k;
        int fragments;
        std::vector<LONG> counts;  // Encode's per fragment, then two Drains'
    };
    std::vector<LONG> big(31, 1);
    big.insert(big.end(), {33, 2, 0});
    const Case cases[] = {
        {32, 0, 3, {1, 1, 1, 0, 0}}, {2, 3, 5, {1, 4, 1, 4, 1, 5, 0}}, {32, 32, 32, big}};
    for (const Case& c : cases) {
        ASSERT_EQ(S_OK, encoder_->Configure(c.group, c.k, kMaxPacket));
        std::vector<LONG> counts;
        for (int i = 0; i < c.fragments; ++i) {
            LONG count = kSentinel;
            ASSERT_EQ(S_OK, encoder_->Encode(fragment.data(), kMaxPacket, list, &count));
            for (LONG j = 0; j < count; ++j)
                EXPECT_LE(list[j].cbData, 1500u);  // fits the receiver's slot
            counts.push_back(count);
        }
        for (int drain = 0; drain < 2; ++drain) {
            LONG count = kSentinel;
            ASSERT_EQ(S_OK, encoder_->Drain(list, &count));
            counts.push_back(count);
        }
        EXPECT_EQ(c.counts, counts) << "group " << c.group << " k " << c.k;
    }

    // group, k, largest fragment
    const std::tuple<LONG, LONG, LONG, HRESULT> configs[] = {{32, 32, 4096, S_OK},
                                                             {33, 0, 1412, E_INVALIDARG},
                                                             {32, 33, 1412, E_INVALIDARG},
                                                             {32, 0, 4097, E_INVALIDARG}};
    for (const auto& [group, k, max, hr] : configs)
        EXPECT_EQ(hr, encoder_->Configure(group, k, max)) << group << " " << k << " " << max;
    ASSERT_EQ(S_OK, encoder_->Configure(32, 2, kMaxPacket));
    const std::tuple<const void*, ULONG, HRESULT> refused[] = {
        {fragment.data(), 0, E_INVALIDARG},
        {fragment.data(), kMaxPacket + 1, E_INVALIDARG},
        {nullptr, 10, E_POINTER}};
    for (const auto& [data, length, hr] : refused) {
        LONG count = kSentinel;
        EXPECT_EQ(hr, encoder_->Encode(data, length, list, &count)) << length;
        EXPECT_EQ(0, count);
    }
    LONG count = kSentinel;
    EXPECT_EQ(E_POINTER, decoder_->Decode(fragment.data(), 10, list, nullptr));
    // The refused calls left the group as it was: one fragment, then the two corrections and
    // the marks.
    ASSERT_EQ(S_OK, encoder_->Encode(fragment.data(), 100, list, &count));
    EXPECT_EQ(1, count);
    ASSERT_EQ(S_OK, encoder_->Drain(list, &count));
    EXPECT_EQ(4, count);
}

}  // namespace
