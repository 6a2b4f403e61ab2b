// FecCoder through CoCreateInstance, encoding as the caster does and decoding as the receiver
// does: losses restored, one too many, damaged and stray datagrams, the order in which fragments
// leave, the call contract. That every loss of up to the correction count is restored, whatever
// the group and the kernel, the FEC fuzz target checks; through the lossy relay, tests/cast.
// Scenarios name datagrams as EncodeAll labels them and list the serials handed back as ranges
// ("0-3,7").
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
    std::vector<Bytes> DecodeAll(const std::vector<Bytes>& datagrams, int* accepted = nullptr) {
        std::vector<Bytes> fragments;
        for (const Bytes& d : datagrams) {
            HRESULT hr;
            for (Bytes& f : DecodeOne(d, &hr))
                fragments.push_back(std::move(f));
            if (accepted)
                *accepted += hr == S_OK;
        }
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
    // As many data datagrams lost as there are corrections, the rest twice, all reversed.
    std::vector<Bytes> arriving;
    for (std::size_t i = 0; i < datagrams.size(); ++i)
        if (i != 1 && i != 5 && i != 6 && i != 11)
            arriving.insert(arriving.end(), {datagrams[i], datagrams[i]});
    std::reverse(arriving.begin(), arriving.end());
    int accepted = 0;
    EXPECT_EQ(fragments, DecodeAll(arriving, &accepted));
    EXPECT_EQ(14, accepted);
}

// Fragments leave in the order they were encoded, so that the receiver's reassembly sees each
// packet whole before the next begins: those behind a missing one wait until it is restored, or
// until enough of the later groups have come (8 datagrams) to give it up. The list holds 33:
// what does not fit leaves with the next datagram. Without corrections they leave as they come.
TEST_F(Fec, FragmentsLeaveInTheOrderTheyWereEncoded) {
    struct Scenario {
        const char* name;
        LONG group, k;
        int burst, next;    // fragments per Drain
        std::string steps;  // "datagram:serials handed back", in arrival order
    };
    // The first group but fragment 0, some of the next group before the first's correction.
    std::string wide;
    for (int i = 1; i <= 34; ++i)
        wide += "d" + std::to_string(i) + " ";
    wide += "r0.0:0-32 d35:33-35";
    const Scenario scenarios[] = {
        {"a restored gap frees what waited behind it", 8, 2, 16, 0,
         "d0:0 d1:1 d3 d7 d4 d5 d6 r0.0:2-7 r0.1 d8:8"},
        {"a gap too wide waits for eight datagrams of later groups", 8, 1, 16, 0,
         "d0:0 d1:1 d3 d4 d6 d7 r0.0 d8 d9 d10 d11 d12 d13 d14 d15:3-4,6-15"},
        {"the next group tells where one whose corrections were lost ended", 8, 2, 5, 3,
         "d0:0 d1:1 d2:2 d3:3 d4:4 d5:5"},
        {"33 at a time", 32, 1, 36, 0, wide},
    };
    std::mt19937 rng(9);
    for (const Scenario& s : scenarios) {
        SCOPED_TRACE(s.name);
        ASSERT_EQ(S_OK, encoder_->Configure(s.group, s.k, kMaxPacket));
        Labels labels;
        const std::vector<Bytes> datagrams = EncodeBursts(s.burst, s.next, rng, &labels);
        std::istringstream steps(s.steps);
        for (std::string step; steps >> step;) {
            const std::size_t colon = std::min(step.find(':'), step.size());
            const auto at = std::find(labels.begin(), labels.end(), step.substr(0, colon));
            ASSERT_NE(labels.end(), at) << step;
            EXPECT_EQ(Range(step.substr(std::min(colon + 1, step.size()))),
                      Serials(DecodeOne(datagrams[at - labels.begin()])))
                << step;
        }
        ASSERT_EQ(S_OK, decoder_->Reset());
    }
}

// At the end of a burst no later datagram comes to free what waits behind a gap. Where the
// stream has kept its order (a long burst came in order first), the burst's own end marks do:
// once what came cannot restore the gap and no correction that could is still on its way, the
// rest leaves; a correction one place late still counts. Where order is not trusted, or the end
// was lost too, the first datagram of the next burst frees it. One loss more than a group's
// corrections costs that group's rest only, once later groups have come.
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
        {"one loss too many, k 0", 8, 0, false, 24, 0, "d8", "", "", "0-7,9-23"},
        {"one loss too many, k 4", 8, 4, false, 24, 0, "d8 d9 d10 d11 d12", "", "", "0-7,13-23"},
        {"one loss too many, k 8", 8, 8, false, 24, 0, "d8 d9 d10 d11 d12 d13 d14 d15 r1.0", "", "",
         "0-7,16-23"},
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

// Without checksums a damaged group number, a forged datagram or a stray one of another session
// must not take the stream over. One datagram far from where the stream is, or of another
// session, is not trusted alone; four in a row that agree on another place (a restarted caster;
// the stream's own after forged ones took it away; the stream beyond a long loss) move it there,
// and they are not lost.
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
        std::vector<Bytes> forged;  // four agreeing data datagrams of a group far ahead
        for (int i = 0; i < 4; ++i) {
            transport::FecHeader f = moved;
            f.index = i;
            f.dataCount = 0;
            Bytes d(transport::kFecHeaderSize);
            const Bytes fragment = MakeFragments(1, rng, 900 + i, 40)[0];
            d.insert(d.end(), fragment.begin(), fragment.end());
            transport::WriteFecHeader(d.data(), f);
            forged.push_back(d);
        }
        // a with `inserted` placed before a[at].
        auto into = [&](std::size_t at, const std::vector<Bytes>& inserted) {
            std::vector<Bytes> v = a;
            v.insert(v.begin() + at, inserted.begin(), inserted.end());
            return v;
        };
        std::vector<Bytes> strayed = into(d7 + 1, {b[0]});
        strayed.erase(strayed.begin() + d6);
        std::vector<Bytes> sideBySide;
        for (std::size_t i = 0; i < a.size(); ++i) {
            sideBySide.push_back(a[i]);
            if (i < b.size())
                sideBySide.push_back(b[i]);
        }

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
            {"forged ones took the stream away", into(d6, forged), "0-5,900-903,6-15", 0, ""},
            {"two sessions side by side", sideBySide, "0-15", 0, ""},
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
    const Case cases[] = {{32, 0, 3, {1, 1, 1, 0, 0}},
                          {2, 3, 5, {1, 4, 1, 4, 1, 5, 0}},
                          {32, 32, 32, big},
                          {1, 1, 2, {2, 2, 2, 0}}};
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

    const std::tuple<LONG, LONG, LONG, HRESULT> configs[] = {// group, k, largest fragment
                                                             {1, 32, 1, S_OK},
                                                             {32, 32, 4096, S_OK},
                                                             {0, 0, 1412, E_INVALIDARG},
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

TEST_F(Fec, ResetStartsANewStreamThatReceiversFollow) {
    std::mt19937 rng(9);
    ASSERT_EQ(S_OK, encoder_->Configure(4, 2, kMaxPacket));
    const std::vector<Bytes> first = MakeFragments(8, rng, 0);
    EXPECT_EQ(first, DecodeAll(EncodeAll(first)));
    // The sender restarts (group numbers from 0 again): its datagrams are new, not repeats.
    ASSERT_EQ(S_OK, encoder_->Reset());
    const std::vector<Bytes> second = MakeFragments(8, rng, 100);
    std::vector<Bytes> datagrams = EncodeAll(second);
    datagrams.erase(datagrams.begin());  // and one is lost
    EXPECT_EQ(second, DecodeAll(datagrams));
    // A receiver's Reset forgets what it has seen: the same datagrams come out again.
    ASSERT_EQ(S_OK, decoder_->Reset());
    EXPECT_EQ(second, DecodeAll(datagrams));
}

}  // namespace
