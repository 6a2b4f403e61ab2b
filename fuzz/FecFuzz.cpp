// The FEC datagram decoder as a receiver runs it (largest fragment 1,412, as the caster and the
// receiver configure their coders). The input is read twice:
// - as records: datagrams as they arrived, any bytes; what the decoder hands out stays inside
//   its buffers and is never longer than a fragment, and an accepted data datagram hands out
//   its own fragment;
// - as a sending: the coder's group size, correction count, checksum and epoch, then for each
//   fragment a control byte (bit 0: drain the group after it), the fragment as a record, and
//   one fate byte per datagram the coder gave out (0-1 arrives, 2 lost, 3 arrives twice; bit 2
//   swaps it with the next), and after it a burst that arrives whole. With corrections the
//   decoder hands fragments out in the order they were encoded, each at most once, byte for
//   byte; where the order held and every group was heard of, every fragment of a group that
//   lost no more data datagrams than correction datagrams arrived, and every other fragment
//   that arrived. Without corrections, exactly the fragments that arrived, each once.
// The last byte picks the GF(256) kernel (SSSE3 or the plain table), so both are checked.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "FecDecoder.h"
#include "FecEncoder.h"
#include "FuzzSupport.h"
#include "Gf256.h"

using namespace transport;
using vantrel::fuzz::Input;

namespace {

constexpr int kMaxFragment = 1412;
using Bytes = std::vector<uint8_t>;

FecDecoder& Decoder() {
    static FecDecoder decoder;
    static const bool configured = decoder.Configure(kMaxFragment);
    FUZZ_CHECK(configured);
    decoder.Reset();
    return decoder;
}

// Decodes one datagram; the fragments handed out are appended to *out.
void Decode(FecDecoder& decoder, const uint8_t* datagram, size_t length, std::vector<Bytes>* out) {
    FecSpan spans[FecDecoder::kMaxDecodeOutput];
    int count = -1;
    const FecDecoder::Result result = decoder.Decode(datagram, length, spans, &count);
    FUZZ_CHECK(count >= 0 && count <= FecDecoder::kMaxDecodeOutput);
    FUZZ_CHECK(result == FecDecoder::Result::kAccepted || count == 0);
    FecHeader h;
    FUZZ_CHECK(ParseFecDatagram(datagram, length, kMaxFragment, &h) ||
               result == FecDecoder::Result::kDropped);
    for (int i = 0; i < count; ++i) {
        FUZZ_CHECK(spans[i].length >= 1 && spans[i].length <= kMaxFragment);
        vantrel::fuzz::Touch(spans[i].data, spans[i].length);
        out->emplace_back(spans[i].data, spans[i].data + spans[i].length);
    }
}

void DecodeRecords(const uint8_t* data, size_t size) {
    FecDecoder& decoder = Decoder();
    Input in(data, size);
    const uint8_t* datagram;
    size_t length;
    std::vector<Bytes> fragments;
    while (in.Record(&datagram, &length)) {
        fragments.clear();
        Decode(decoder, datagram, length, &fragments);
    }
}

struct Sent {
    Bytes bytes;
    FecHeader header;
    int fate = 0;  // 0-1 arrives, 2 lost, 3 arrives twice; bit 2 swapped with the next
};

class Sender {
  public:
    Sender(Input& in, int groupSize, int repairs, bool checksum)
        : in_(in), repairs_(repairs), checksum_(checksum) {
        FUZZ_CHECK(encoder_.Configure(groupSize, repairs, kMaxFragment, in.U32()));
        encoder_.SetChecksum(checksum);
    }
    // Encodes a fragment; each datagram's fate comes from the input, or is "arrives" when
    // `safe`.
    void Send(const uint8_t* fragment, size_t length, bool safe) {
        const int count = encoder_.Encode(fragment, length, out_);
        if (length == 0) {
            FUZZ_CHECK(count == -1);
            return;
        }
        FUZZ_CHECK(count >= 1 && count <= FecEncoder::kMaxEncodeOutput);
        const FecHeader h = Take(count, safe).header;
        FUZZ_CHECK(!h.repair && !h.endMark && h.payloadLength == length);
        std::vector<Bytes>& group = groups_[h.group];
        FUZZ_CHECK(static_cast<int>(group.size()) == h.index);
        group.emplace_back(fragment, fragment + length);
        fragments_.push_back({h.group, h.index});
    }
    void Drain(bool safe) {
        const int count = encoder_.Drain(out_);
        FUZZ_CHECK(count >= 0 && count <= FecEncoder::kMaxDrainOutput);
        if (count)
            Take(count, safe);
    }

    const std::vector<Sent>& Datagrams() const { return sent_; }
    const std::vector<Bytes>& Group(uint32_t number) { return groups_[number]; }
    // Every fragment, in the order it was encoded: group, index.
    const std::vector<std::pair<uint32_t, int>>& Fragments() const { return fragments_; }

  private:
    // The datagrams of one call; returns the first.
    const Sent& Take(int count, bool safe) {
        const size_t first = sent_.size();
        for (int i = 0; i < count; ++i) {
            Sent s;
            s.bytes.assign(out_[i].data, out_[i].data + out_[i].length);
            FUZZ_CHECK(ParseFecDatagram(s.bytes.data(), s.bytes.size(), kMaxFragment, &s.header));
            FUZZ_CHECK(s.header.checksum == checksum_ && s.header.repairCount == repairs_);
            s.fate = safe ? 0 : in_.U8();
            sent_.push_back(std::move(s));
        }
        return sent_[first];
    }

    Input& in_;
    const int repairs_;
    const bool checksum_;
    FecEncoder encoder_;
    FecSpan out_[std::max(FecEncoder::kMaxEncodeOutput, FecEncoder::kMaxDrainOutput)];
    std::vector<Sent> sent_;
    std::map<uint32_t, std::vector<Bytes>> groups_;
    std::vector<std::pair<uint32_t, int>> fragments_;
};

void SendAndReceive(const uint8_t* data, size_t size) {
    Input in(data, size);
    const int groupSize = 1 + in.U8() % kFecMaxGroup;
    const int repairs = in.U8() % (kFecMaxRepair + 1);
    const bool checksum = in.U8() & 1;
    Sender sender(in, groupSize, repairs, checksum);
    while (in.Left()) {
        const uint8_t control = in.U8();
        const uint8_t* fragment = nullptr;
        size_t length = 0;
        if (!in.Record(&fragment, &length))
            break;
        sender.Send(fragment, std::min<size_t>(length, kMaxFragment), false);
        if (control & 1)
            sender.Drain(false);
    }
    sender.Drain(false);
    // Then a burst that arrives whole and in order, longer than the decoder's reordering
    // slack: nothing it held back can still wait for anything.
    for (uint8_t i = 0; i < FecDecoder::kReorderSlack + 2; ++i) {
        const uint8_t tail[3] = {0xEE, i, static_cast<uint8_t>(groupSize)};
        sender.Send(tail, sizeof tail, true);
    }
    sender.Drain(true);

    // What arrives, in order.
    std::vector<const Sent*> arrived;
    bool reordered = false;
    for (const Sent& s : sender.Datagrams()) {
        if ((s.fate & 3) == 2)
            continue;
        arrived.push_back(&s);
        if ((s.fate & 3) == 3)
            arrived.push_back(&s);
    }
    for (size_t i = 0; i + 1 < arrived.size(); ++i) {
        if (arrived[i]->fate & 4 && arrived[i] != arrived[i + 1]) {
            reordered = true;
            std::swap(arrived[i], arrived[i + 1]);
            ++i;
        }
    }
    FecDecoder& decoder = Decoder();
    std::vector<Bytes> delivered;
    for (const Sent* s : arrived)
        Decode(decoder, s->bytes.data(), s->bytes.size(), &delivered);

    // Per group: the data and corrections that arrived. A group can be restored when no more
    // of its data was lost than corrections arrived.
    std::map<uint32_t, std::pair<std::set<int>, std::set<int>>> got;
    for (const Sent* s : arrived)
        if (!s->header.endMark)
            (s->header.repair ? got[s->header.group].second : got[s->header.group].first)
                .insert(s->header.index);
    std::vector<Bytes> sent, expected;
    bool everyGroupHeard = true;
    for (const auto& [group, index] : sender.Fragments()) {
        const Bytes& fragment = sender.Group(group)[index];
        sent.push_back(fragment);
        const auto& [data, corrections] = got[group];
        everyGroupHeard &= !data.empty() || !corrections.empty();
        const size_t lost = sender.Group(group).size() - data.size();
        if (data.count(index) || (lost && corrections.size() >= lost))
            expected.push_back(fragment);
    }

    if (repairs == 0) {
        // Nothing to restore: fragments leave as they come, each once.
        std::sort(expected.begin(), expected.end());
        std::sort(delivered.begin(), delivered.end());
        FUZZ_CHECK(delivered == expected);
        return;
    }
    // Fragments leave in the order they were encoded, each at most once, byte for byte.
    size_t at = 0;
    for (const Bytes& fragment : delivered) {
        while (at < sent.size() && sent[at] != fragment)
            ++at;
        FUZZ_CHECK(at < sent.size());
        ++at;
    }
    // Where the order held and every group was heard of, everything that arrived or could be
    // restored left.
    if (!reordered && everyGroupHeard)
        FUZZ_CHECK(delivered == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Both multiply-add kernels, as the CPU picks them: the last byte chooses.
    SelectGfKernel(size && (data[size - 1] & 1) ? GfKernel::kScalar : GfKernel::kSsse3);
    DecodeRecords(data, size);
    SendAndReceive(data, size);
    return 0;
}
