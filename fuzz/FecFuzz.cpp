// The FEC datagram decoder as a receiver runs it (largest fragment 1,412, as the caster and the
// receiver configure their coders). The input is read twice:
// - as records: datagrams as they arrived, any bytes; what the decoder hands out stays inside
//   its buffers and is never longer than a fragment, and an accepted data datagram hands out
//   its own fragment;
// - as a sending: the coder's group size, correction count, checksum and epoch, then for each
//   fragment a control byte (bit 0: drain the group after it), the fragment as a record, and
//   one fate byte per datagram the coder gave out (0-1 arrives, 2 lost, 3 arrives twice; bit 2
//   swaps it with the next). The decoder must hand out every fragment of a group that lost no
//   more data datagrams than correction datagrams arrived, and otherwise exactly the fragments
//   that arrived; each once, byte for byte.
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
    bool own = false;
    FecHeader h;
    const bool parsed = ParseFecDatagram(datagram, length, kMaxFragment, &h);
    FUZZ_CHECK(parsed || result == FecDecoder::Result::kDropped);
    for (int i = 0; i < count; ++i) {
        FUZZ_CHECK(spans[i].length >= 1 && spans[i].length <= kMaxFragment);
        vantrel::fuzz::Touch(spans[i].data, spans[i].length);
        own |= !h.repair && spans[i].length == h.payloadLength &&
               std::memcmp(spans[i].data, datagram + kFecHeaderSize, h.payloadLength) == 0;
        out->emplace_back(spans[i].data, spans[i].data + spans[i].length);
    }
    if (result == FecDecoder::Result::kAccepted && !h.repair)
        FUZZ_CHECK(own);
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
    int fate = 0;
};

void SendAndReceive(const uint8_t* data, size_t size) {
    Input in(data, size);
    const int groupSize = 1 + in.U8() % kFecMaxGroup;
    const int repairs = in.U8() % (kFecMaxRepair + 1);
    const bool checksum = in.U8() & 1;
    FecEncoder encoder;
    FUZZ_CHECK(encoder.Configure(groupSize, repairs, kMaxFragment, in.U32()));
    encoder.SetChecksum(checksum);

    std::vector<Sent> sent;
    std::map<uint32_t, std::vector<Bytes>> groups;  // group -> its fragments by index
    FecSpan out[FecEncoder::kMaxEncodeOutput];
    auto take = [&](int count) {
        for (int i = 0; i < count; ++i) {
            Sent s;
            s.bytes.assign(out[i].data, out[i].data + out[i].length);
            FUZZ_CHECK(ParseFecDatagram(s.bytes.data(), s.bytes.size(), kMaxFragment, &s.header));
            FUZZ_CHECK(s.header.checksum == checksum && s.header.repairCount == repairs);
            s.fate = in.U8();
            sent.push_back(std::move(s));
        }
    };
    while (in.Left()) {
        const uint8_t control = in.U8();
        const uint8_t* fragment = nullptr;
        size_t length = 0;
        if (!in.Record(&fragment, &length))
            break;
        length = std::min<size_t>(length, kMaxFragment);
        const int count = encoder.Encode(fragment, length, out);
        if (length == 0) {
            FUZZ_CHECK(count == -1);
            continue;
        }
        FUZZ_CHECK(count >= 1 && count <= FecEncoder::kMaxEncodeOutput);
        take(count);
        const FecHeader& h = sent[sent.size() - count].header;
        FUZZ_CHECK(!h.repair && h.payloadLength == length);
        std::vector<Bytes>& group = groups[h.group];
        FUZZ_CHECK(static_cast<int>(group.size()) == h.index);
        group.emplace_back(fragment, fragment + length);
        if (control & 1)
            take(encoder.Drain(out));
    }
    take(encoder.Drain(out));

    // What arrives, in order; and per group what of it counts.
    std::vector<const Sent*> arrived;
    for (const Sent& s : sent) {
        if ((s.fate & 3) == 2)
            continue;
        arrived.push_back(&s);
        if ((s.fate & 3) == 3)
            arrived.push_back(&s);
    }
    for (size_t i = 0; i + 1 < arrived.size(); ++i) {
        if (arrived[i]->fate & 4) {
            std::swap(arrived[i], arrived[i + 1]);
            ++i;
        }
    }
    std::map<uint32_t, std::pair<std::set<int>, std::set<int>>> got;  // data, corrections
    for (const Sent* s : arrived)
        (s->header.repair ? got[s->header.group].second : got[s->header.group].first)
            .insert(s->header.index);
    std::vector<Bytes> expected;
    for (const auto& [number, fragments] : groups) {
        const auto& [data, corrections] = got[number];
        const size_t lost = fragments.size() - data.size();
        for (size_t i = 0; i < fragments.size(); ++i)
            if (data.count(static_cast<int>(i)) || (lost && corrections.size() >= lost))
                expected.push_back(fragments[i]);
    }

    FecDecoder& decoder = Decoder();
    std::vector<Bytes> delivered;
    for (const Sent* s : arrived)
        Decode(decoder, s->bytes.data(), s->bytes.size(), &delivered);
    std::sort(expected.begin(), expected.end());
    std::sort(delivered.begin(), delivered.end());
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
