// vantrel_fuzzseeds.exe <corpus folder>: makes the seed corpora of the native fuzz targets
// (fuzz/corpus/<target>) from real output, the way a host gets it through the registered COM
// objects: a short capture of the virtual screen while a small window changes, its packets
// restored by ScreenCodec, a lesson file DesktopRecorder wrote of them, and the datagrams a
// DesktopCaster sends for them with and without correction, heard through the transport's own
// receiver. Only small items are kept (a few KB each). scripts/fuzz --seeds runs it under the
// harness; the record files (fec, fragment) hold a u16 length before each datagram or fragment.
#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

#include "ScreenCodec.h"
#include "Transport.h"
#include "Vantrel.h"
#include "common/FakeSink.h"
#include "common/Screen.h"
#include "wincom/ComPtr.h"
#include "wincom/CriticalSection.h"

using namespace vantrel;
using Bytes = std::vector<uint8_t>;

namespace {

constexpr uint32_t kFrameMagic = 0x46524D48;  // "HMRF"
constexpr uint32_t kBufferSize = 0x180000;
constexpr size_t kSmall = 6144;  // the largest seed kept
constexpr char kLocal[] = "127.0.0.1";

std::string g_folder;
int g_failures = 0;

void Fail(const char* what, HRESULT hr = E_FAIL) {
    std::printf("fuzzseeds: %s (0x%08lx)\n", what, static_cast<unsigned long>(hr));
    ++g_failures;
}

void Write(const char* target, const std::string& name, const Bytes& bytes) {
    const std::string folder = g_folder + "\\" + target;
    CreateDirectoryA(folder.c_str(), nullptr);
    std::ofstream out(folder + "\\" + name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    if (!out)
        Fail(("cannot write " + name).c_str());
}

void PutU16(Bytes& v, size_t n) {
    v.push_back(static_cast<uint8_t>(n));
    v.push_back(static_cast<uint8_t>(n >> 8));
}

void AppendRecord(Bytes& records, const void* data, size_t n) {
    PutU16(records, n);
    records.insert(records.end(), static_cast<const uint8_t*>(data),
                   static_cast<const uint8_t*>(data) + n);
}

bool IsFrame(const Bytes& packet) {
    uint32_t magic = 0;
    std::memcpy(&magic, packet.data(), 4);
    return magic == kFrameMagic;
}

template <typename T>
ComPtr<T> Create(REFCLSID clsid, REFIID iid, const char* name) {
    ComPtr<T> object;
    const HRESULT hr =
        CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, iid, object.PutVoid());
    if (FAILED(hr))
        Fail(name, hr);
    return object;
}

// The packets of a short capture while a small box of noise changes a few times.
std::vector<Bytes> Capture() {
    std::vector<Bytes> packets;
    auto capture =
        Create<IDesktopCapture>(CLSID_DesktopCapture, IID_IDesktopCapture, "DesktopCapture");
    if (!capture)
        return packets;
    test::FakeSink sink("seeds");
    test::NoiseBox box(RECT{200, 150, 224, 166}, 1);
    box.Shown();
    if (FAILED(capture->RegisterDataTransmitter(&sink)) || FAILED(capture->Run())) {
        Fail("the capture did not start");
        return packets;
    }
    test::PumpFor(1500);
    for (uint32_t seed = 2; seed < 5; ++seed) {
        box.Repaint(seed);
        test::PumpFor(400);
    }
    box.MoveTo(300, 200);
    test::PumpFor(600);
    capture->Stop();
    capture->UnregisterDataTransmitter(&sink);
    for (const auto& p : sink.Packets())
        packets.push_back(p.bytes);
    return packets;
}

// The capture's small packets: a few frames and cursor packets, smallest first.
std::vector<Bytes> Pick(const std::vector<Bytes>& packets) {
    std::vector<Bytes> frames, cursors;
    for (const Bytes& p : packets)
        if (p.size() <= kSmall)
            (IsFrame(p) ? frames : cursors).push_back(p);
    auto bySize = [](const Bytes& a, const Bytes& b) { return a.size() < b.size(); };
    std::sort(frames.begin(), frames.end(), bySize);
    std::sort(cursors.begin(), cursors.end(), bySize);
    // The smallest, the largest and one between.
    std::vector<Bytes> picked;
    if (!frames.empty()) {
        picked.push_back(frames.front());
        if (frames.size() > 2)
            picked.push_back(frames[frames.size() / 2]);
        if (frames.size() > 1)
            picked.push_back(frames.back());
    }
    for (size_t i = 0; i < cursors.size() && i < 2; ++i)
        picked.push_back(cursors[i]);
    return picked;
}

// Packets, codec blocks and cursor records, compressed and restored.
void PacketSeeds(const std::vector<Bytes>& picked) {
    auto codec = Create<IScreenCodec>(CLSID_ScreenCodec, IID_IScreenCodec, "ScreenCodec");
    Bytes restored(kBufferSize);
    int frames = 0, cursors = 0;
    for (const Bytes& packet : picked) {
        const bool frame = IsFrame(packet);
        const size_t header = frame ? 48 : 12;
        const std::string name =
            frame ? "frame" + std::to_string(++frames) : "cursor" + std::to_string(++cursors);
        Write("packet", name + ".pkt", packet);
        const Bytes body(packet.begin() + header, packet.end());
        Write("codec", name + ".vsc", body);
        ULONG size = kBufferSize;
        if (!codec || codec->Decompress(body.data(), static_cast<ULONG>(body.size()),
                                        restored.data(), &size) != S_OK) {
            Fail(("cannot restore " + name).c_str());
            continue;
        }
        if (size > kSmall)
            continue;
        // The packet again with its body restored: what the payload and record parsers see.
        Bytes plain(packet.begin(), packet.begin() + header);
        plain.insert(plain.end(), restored.begin(), restored.begin() + size);
        const uint32_t length = static_cast<uint32_t>(plain.size());
        std::memcpy(plain.data() + 4, &length, 4);
        Write("packet", name + "-restored.pkt", plain);
        const Bytes original(restored.begin(), restored.begin() + size);
        Write(frame ? "codec" : "cursor", name + (frame ? "-payload.bin" : ".rec"), original);
    }
}

// A lesson file of the given packets, as DesktopRecorder writes it.
void LessonSeed(const std::vector<Bytes>& packets, const char* name) {
    auto recorder =
        Create<IDesktopRecorder>(CLSID_DesktopRecorder, IID_IDesktopRecorder, "DesktopRecorder");
    ComPtr<IDataTransmitter> sink;
    if (!recorder || FAILED(recorder.As(&sink)))
        return;
    char path[MAX_PATH], file[MAX_PATH];
    GetTempPathA(MAX_PATH, path);
    GetTempFileNameA(path, "les", 0, file);
    if (FAILED(recorder->Open(file, FALSE)) || FAILED(recorder->Run())) {
        Fail("the recorder did not start");
        return;
    }
    for (Bytes p : packets) {
        sink->Transfer(p.data(), static_cast<unsigned long>(p.size()), FALSE);
        Sleep(30);
    }
    recorder->Stop();
    recorder->Close();
    std::ifstream in(file, std::ios::binary);
    const Bytes bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    in.close();
    DeleteFileA(file);
    Write("lesson", name, bytes);
}

// What a session hears: the datagrams as they arrived.
class Listener {
  public:
    Listener(const char* group, USHORT port) {
        receiver_ = Create<IMulticastReceiver>(CLSID_MulticastReceiver, IID_IMulticastReceiver,
                                               "MulticastReceiver");
        if (!receiver_ || FAILED(receiver_->Join(kLocal, group, port)) ||
            FAILED(receiver_->SetCallback(Heard, this)) || FAILED(receiver_->Start())) {
            Fail("cannot listen to the session");
            receiver_.Reset();
        }
    }
    ~Listener() {
        if (receiver_) {
            receiver_->Stop();
            receiver_->Leave();
        }
    }
    size_t Count() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return datagrams_.size();
    }
    std::vector<Bytes> Datagrams() const {
        std::lock_guard<CriticalSection> guard(lock_);
        return datagrams_;
    }

  private:
    static LONG __cdecl Heard(void* context, ULONG, ULONG, const void* data, ULONG length) {
        auto* self = static_cast<Listener*>(context);
        std::lock_guard<CriticalSection> guard(self->lock_);
        const auto* p = static_cast<const uint8_t*>(data);
        self->datagrams_.emplace_back(p, p + length);
        return 0;
    }

    ComPtr<IMulticastReceiver> receiver_;
    mutable CriticalSection lock_;
    std::vector<Bytes> datagrams_;
};

// The datagrams a caster sends for the packets, and the fragments a receiving coder makes of
// them.
void CastSeeds(const std::vector<Bytes>& packets, int fec, bool checksum, USHORT port) {
    char group[] = "239.255.77.1";
    char local[] = "127.0.0.1";
    Listener listener(group, port);
    auto caster = Create<IDesktopCaster>(CLSID_DesktopCaster, IID_IDesktopCaster, "DesktopCaster");
    ComPtr<IDataTransmitter> sink;
    if (!caster || FAILED(caster.As(&sink)))
        return;
    caster->CreateSession(local, group, port, fec, checksum ? TRUE : FALSE);
    caster->Run();
    for (Bytes p : packets)
        sink->Transfer(p.data(), static_cast<unsigned long>(p.size()), FALSE);
    sink->Flush();
    size_t count = 0;
    test::WaitUntil(
        [&] {
            const size_t now = listener.Count();
            const bool still = now == count && now > 0;
            count = now;
            return still;
        },
        5000, 200);
    caster->DestroySession();

    auto coder = Create<IFecCoder>(CLSID_FecCoder, IID_IFecCoder, "FecCoder");
    if (!coder)
        return;
    coder->Configure(32, 0, 1412);
    Bytes datagrams, fragments;
    for (const Bytes& d : listener.Datagrams()) {
        AppendRecord(datagrams, d.data(), d.size());
        FecBuffer list[33];
        LONG n = 0;
        coder->Decode(d.data(), static_cast<ULONG>(d.size()), list, &n);
        for (LONG i = 0; i < n && i < 33; ++i)
            AppendRecord(fragments, list[i].pbData, list[i].cbData);
    }
    if (datagrams.empty())
        Fail("no datagram heard");
    const std::string name = "caster-fec" + std::to_string(fec) + (checksum ? "-crc" : "");
    Write("fec", name + ".rec", datagrams);
    Write("fragment", name + ".rec", fragments);
}

// Update-region operations (fuzz/RegionFuzz.cpp) over the capture's bands, scaled down by 16
// onto the target's small desktop, then every query.
void RegionSeed(const std::vector<Bytes>& packets) {
    Bytes ops;
    auto small = [&ops](LONG v) {
        ops.push_back(static_cast<uint8_t>(std::clamp<LONG>(v / 16, 0, 127)));
    };
    for (const Bytes& p : packets) {
        if (!IsFrame(p) || p.size() < 48)
            continue;
        LONG band[4];
        std::memcpy(band, p.data() + 32, sizeof band);
        ops.push_back(0);  // AddRect
        for (LONG v : band)
            small(v);
        ops.push_back(2);  // GetRects
    }
    const uint8_t queries[] = {4, 3, 0, 0, 40, 40, 2 | 8, 3 | 8, 50, 50, 51, 51, 1, 4, 2};
    ops.insert(ops.end(), std::begin(queries), std::end(queries));
    Write("region", "capture-bands.ops", ops);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::printf("usage: vantrel_fuzzseeds <corpus folder>\n");
        return 2;
    }
    g_folder = argv[1];
    CreateDirectoryA(g_folder.c_str(), nullptr);
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)))
        return 1;
    {
        const std::vector<Bytes> captured = Capture();
        const std::vector<Bytes> picked = Pick(captured);
        std::printf("fuzzseeds: %zu packets captured, %zu kept\n", captured.size(), picked.size());
        if (picked.empty())
            Fail("nothing captured");
        PacketSeeds(picked);
        LessonSeed(picked, "recorded.lsn");
        LessonSeed(
            std::vector<Bytes>(picked.end() - std::min<size_t>(picked.size(), 2), picked.end()),
            "recorded-short.lsn");
        // The packets of up to 3,000 bytes: some take two or three fragments.
        std::vector<Bytes> cast;
        for (const Bytes& p : picked)
            if (p.size() <= 3000)
                cast.push_back(p);
        CastSeeds(cast, 0, false, 41001);
        CastSeeds(cast, 4, true, 41002);
        CastSeeds(cast, 2, false, 41003);
        RegionSeed(captured);
    }
    CoUninitialize();
    std::printf("fuzzseeds: %s\n", g_failures ? "FAILED" : "done");
    return g_failures ? 1 : 0;
}
