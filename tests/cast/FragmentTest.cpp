// Fragments as the caster cuts them and the receiver puts them together: header layout, sizes
// and offsets, reassembly in any order, and the counting rules for duplicates, interleaved
// messages and fragments that would not fit.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "cast/Fragment.h"

using namespace vantrel::cast;

namespace {

std::vector<uint8_t> Pattern(uint32_t length, uint32_t seed) {
    std::vector<uint8_t> bytes(length);
    uint32_t x = seed * 2654435761u + 1;
    for (auto& b : bytes) {
        x = x * 1103515245u + 12345u;
        b = static_cast<uint8_t>(x >> 16);
    }
    return bytes;
}

std::vector<std::vector<uint8_t>> Cut(uint32_t message, const std::vector<uint8_t>& packet) {
    uint8_t buffer[kMaxFragmentSize + 16];
    std::vector<std::vector<uint8_t>> fragments;
    Fragmenter cutter(buffer, message, packet.data(), static_cast<uint32_t>(packet.size()));
    while (uint32_t n = cutter.Next())
        fragments.emplace_back(buffer, buffer + n);
    return fragments;
}

// A fragment of message m at offset o claiming total t, with n data bytes of value fill.
std::vector<uint8_t> Fragment(uint32_t m, uint32_t o, uint32_t t, uint32_t n, uint8_t fill = 0) {
    std::vector<uint8_t> f(kFragmentHeaderSize + n, fill);
    WriteFragmentHeader(f.data(), FragmentHeader{m, o, t});
    return f;
}

}  // namespace

TEST(Fragment, HeaderIsThreeLittleEndianWords) {
    uint8_t bytes[12];
    WriteFragmentHeader(bytes, FragmentHeader{0x04030201, 0x0000AF00, 0x00180000});
    const uint8_t expected[12] = {1, 2, 3, 4, 0, 0xAF, 0, 0, 0, 0, 0x18, 0};
    EXPECT_TRUE(std::equal(bytes, bytes + 12, expected));
    FragmentHeader h{};
    ASSERT_TRUE(ReadFragmentHeader(bytes, 12, &h));
    EXPECT_EQ(0x04030201u, h.messageNumber);
    EXPECT_EQ(0xAF00u, h.offset);
    EXPECT_EQ(0x180000u, h.totalLength);
    EXPECT_FALSE(ReadFragmentHeader(bytes, 11, &h));
}

TEST(Fragment, PacketsAreCutInto1400ByteSlicesBehindOneMessageNumber) {
    const uint32_t lengths[] = {0, 1, 12, 1399, 1400, 1401, 2800, 3000, kMaxPacketSize};
    for (uint32_t length : lengths) {
        SCOPED_TRACE(length);
        const auto packet = Pattern(length, length);
        const auto fragments = Cut(77, packet);
        ASSERT_EQ((length + kMaxFragmentData - 1) / kMaxFragmentData, fragments.size());
        std::vector<uint8_t> joined;
        for (size_t i = 0; i < fragments.size(); ++i) {
            const auto& f = fragments[i];
            FragmentHeader h{};
            ASSERT_TRUE(ReadFragmentHeader(f.data(), f.size(), &h));
            EXPECT_EQ(77u, h.messageNumber);
            EXPECT_EQ(i * kMaxFragmentData, h.offset);
            EXPECT_EQ(length, h.totalLength);
            const size_t data = std::min<size_t>(length - h.offset, kMaxFragmentData);
            ASSERT_EQ(data + kFragmentHeaderSize, f.size());
            joined.insert(joined.end(), f.begin() + kFragmentHeaderSize, f.end());
        }
        EXPECT_EQ(packet, joined);
    }
    // The coder is handed 1,412, 1,412 and 212 bytes for a 3,000-byte packet.
    const auto three = Cut(0, Pattern(3000, 1));
    ASSERT_EQ(3u, three.size());
    EXPECT_EQ(1412u, three[0].size());
    EXPECT_EQ(1412u, three[1].size());
    EXPECT_EQ(212u, three[2].size());
}

TEST(Reassembly, APacketIsDeliveredOnceWhateverTheOrderOfItsFragments) {
    struct Case {
        uint32_t length;
        std::vector<int> order;  // fragment indexes in arrival order
    } cases[] = {
        {3000, {2, 0, 1}}, {3000, {0, 1, 2}},          {1400, {0}},
        {5, {0}},          {7001, {5, 4, 3, 2, 1, 0}}, {kMaxPacketSize, {}},  // all, back to front
    };
    Reassembler reassembler;
    ASSERT_TRUE(reassembler.Ready());
    uint32_t message = 1;
    for (auto& c : cases) {
        SCOPED_TRACE(c.length);
        const auto packet = Pattern(c.length, message);
        const auto fragments = Cut(message++, packet);
        if (c.order.empty())
            for (int i = static_cast<int>(fragments.size()) - 1; i >= 0; --i)
                c.order.push_back(i);
        for (size_t k = 0; k < c.order.size(); ++k) {
            const auto& f = fragments[c.order[k]];
            uint32_t got = 0xdeadbeef;
            const bool done = reassembler.Add(f.data(), f.size(), &got);
            ASSERT_EQ(k + 1 == c.order.size(), done) << "arrival " << k;
            if (done) {
                ASSERT_EQ(c.length, got);
                EXPECT_TRUE(std::equal(packet.begin(), packet.end(), reassembler.packet()));
            } else {
                EXPECT_EQ(0xdeadbeefu, got);
            }
        }
    }
}

// Each step: one fragment, whether it completes a packet (and its length), and the counters
// afterwards.
TEST(Reassembly, CountingFollowsTheDataBytesOfTheCurrentMessage) {
    struct Step {
        std::vector<uint8_t> fragment;
        bool delivers;
        uint32_t message;
        uint32_t bytes;
    };
    const uint32_t kMax = kMaxPacketSize;
    const uint32_t kOversized = 1400 * (kMax / 1400 + 1);  // reachable by 1,400-byte steps
    struct Scenario {
        const char* name;
        std::vector<Step> steps;
    } scenarios[] = {
        {"a newer message gives the half-gathered one up; a late fragment restarts it",
         {{Fragment(4, 0, 3000, 1400), false, 4, 1400},
          {Fragment(5, 0, 2000, 1400), false, 5, 1400},
          {Fragment(4, 1400, 3000, 1400), false, 4, 1400},
          {Fragment(4, 2800, 3000, 200), false, 4, 1600},
          {Fragment(4, 0, 3000, 1400), true, 4, 3000}}},
        {"a duplicate counts twice and can complete a packet early",
         {{Fragment(1, 0, 2800, 1400), false, 1, 1400},
          {Fragment(1, 0, 2800, 1400), true, 1, 2800},
          {Fragment(1, 1400, 2800, 1400), false, 1, 4200}}},
        {"after delivery, later fragments of the number deliver nothing more",
         {{Fragment(2, 0, 100, 100), true, 2, 100}, {Fragment(2, 0, 100, 100), false, 2, 200}}},
        {"after a reset message 0 is the current one", {{Fragment(0, 0, 10, 10), true, 0, 10}}},
        {"short fragments, and data ending past the buffer, are dropped without a trace",
         {{std::vector<uint8_t>(11, 0), false, 0, 0},
          {std::vector<uint8_t>(), false, 0, 0},
          {Fragment(3, kMax + 1, kMax, 0), false, 0, 0},
          {Fragment(3, kMax - 10, kMax, 11), false, 0, 0},
          {Fragment(3, 0xFFFFFFF0u, kMax, 100), false, 0, 0},
          {Fragment(3, kMax - 10, 10, 10), true, 3, 10}}},
        {"a claimed length beyond the buffer is never delivered",
         {{Fragment(6, 0, kOversized, 1400), false, 6, 1400}}},
        {"a header-only fragment of an empty packet completes it",
         {{Fragment(9, 0, 0, 0), true, 9, 0}}},
    };
    // The oversized claim: a flood of duplicates walks the count up to it.
    auto& oversized = scenarios[5].steps;
    for (uint32_t bytes = 2800; bytes <= kOversized; bytes += 1400)
        oversized.push_back({Fragment(6, 0, kOversized, 1400), false, 6, bytes});

    Reassembler reassembler;
    for (const auto& s : scenarios) {
        SCOPED_TRACE(s.name);
        reassembler.Reset();
        for (size_t i = 0; i < s.steps.size(); ++i) {
            const auto& step = s.steps[i];
            uint32_t length = 0xdeadbeef;
            EXPECT_EQ(step.delivers,
                      reassembler.Add(step.fragment.data(), step.fragment.size(), &length))
                << "step " << i;
            EXPECT_EQ(step.delivers ? step.bytes : 0xdeadbeef, length) << "step " << i;
            EXPECT_EQ(step.message, reassembler.messageNumber()) << "step " << i;
            EXPECT_EQ(step.bytes, reassembler.bytesReceived()) << "step " << i;
        }
    }
}
