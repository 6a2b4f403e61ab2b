// Sink table of the stream sources (see SinkTable.h for the threading contract).
#include "stream/SinkTable.h"

#include <mutex>
#include <new>

#include "wincom/Result.h"

namespace vantrel {

namespace {

// Whether sink belongs to the object whose IUnknown is identity. Asked on the delivering thread,
// of a pinned sink, only when a delivery skips an object.
bool IsObject(IDataTransmitter* sink, IUnknown* identity) noexcept {
    if (sink == identity)
        return true;
    IUnknown* unknown = nullptr;
    if (FAILED(sink->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unknown))) || !unknown)
        return false;
    unknown->Release();
    return unknown == identity;
}

}  // namespace

SinkTable::~SinkTable() {
    // Registered sinks are deliberately not released (see the header); only our records go.
    for (Entry*& entry : slots_) {
        delete entry;
        entry = nullptr;
    }
}

HRESULT SinkTable::RegisterDataTransmitter(IDataTransmitter* sink) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, sink);
    Entry* entry = new (std::nothrow) Entry{sink, 0, true};
    RETURN_IF_NULL_ALLOC(entry);
    {
        std::lock_guard<CriticalSection> guard(lock_);
        for (Entry*& slot : slots_) {
            if (!slot) {
                sink->AddRef();
                slot = entry;
                return S_OK;
            }
        }
    }
    delete entry;
    return E_FAIL;
}

HRESULT SinkTable::UnregisterDataTransmitter(IDataTransmitter* sink) noexcept {
    RETURN_HR_IF_NULL(E_POINTER, sink);
    Entry* entry = nullptr;
    {
        std::lock_guard<CriticalSection> guard(lock_);
        for (Entry*& slot : slots_) {
            if (slot && slot->sink == sink) {
                entry = slot;
                slot = nullptr;
                break;
            }
        }
        if (!entry)
            return E_FAIL;
        entry->registered = false;
        // A delivery inside a call through this registration releases it when the call returns.
        if (entry->pins > 0)
            return S_OK;
    }
    sink->Release();
    delete entry;
    return S_OK;
}

void SinkTable::Unpin(Entry* entry) noexcept {
    {
        std::lock_guard<CriticalSection> guard(lock_);
        if (--entry->pins > 0 || entry->registered)
            return;
    }
    entry->sink->Release();
    delete entry;
}

template <typename Call>
int SinkTable::ForEach(IUnknown* skip, Call call) noexcept {
    int calls = 0;
    for (int i = 0; i < kSlots; ++i) {
        Entry* entry = nullptr;
        {
            std::lock_guard<CriticalSection> guard(lock_);
            entry = slots_[i];
            if (!entry)
                continue;
            ++entry->pins;
        }
        if (!skip || !IsObject(entry->sink, skip)) {
            call(entry->sink);
            ++calls;
        }
        Unpin(entry);
    }
    return calls;
}

int SinkTable::Deliver(const void* data, uint32_t cbData, IUnknown* skip) noexcept {
    // Transfer takes a non-const pointer by its IDL; sinks treat the packet as read-only.
    void* packet = const_cast<void*>(data);
    return ForEach(skip, [&](IDataTransmitter* sink) { sink->Transfer(packet, cbData, FALSE); });
}

int SinkTable::Flush() noexcept {
    return ForEach(nullptr, [](IDataTransmitter* sink) { sink->Flush(); });
}

int SinkTable::Count() const noexcept {
    std::lock_guard<CriticalSection> guard(lock_);
    int n = 0;
    for (const Entry* entry : slots_)
        n += entry ? 1 : 0;
    return n;
}

}  // namespace vantrel
