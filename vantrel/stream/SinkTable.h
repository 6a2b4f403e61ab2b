// The sink table every source of the desktop stream embeds (DesktopCapture, DesktopReader,
// DesktopReceiver): five slots of registered IDataTransmitter pointers, delivered to in slot
// order. The sources' RegisterDataTransmitter / UnregisterDataTransmitter forward here.
//
// Threads. Registration runs on the client's threads, delivery on the source's worker thread.
// One lock guards the slots, but it is never held across a call into a sink: a delivery reads a
// slot under the lock, pins that registration, calls Transfer / Flush unlocked, and unpins. So a
// registration never waits for a slow Transfer, and delivery keeps slot order, seeing whatever
// the table holds at the moment it passes each slot.
// An unregistration empties the slot at once (later deliveries skip it) and returns; if a
// delivery is inside that registration's Transfer or Flush, the table's reference is released
// by the delivering thread as soon as the call returns, never during it. The sink therefore
// sees no call after its Unregister returned except the one already running.
//
// A table being destroyed does not release sinks that are still registered: clients unregister
// every sink they registered before they let the source go, and a source's end must not call
// into a sink the client may already have torn down.
#pragma once

#include <windows.h>

#include <cstdint>

#include "Vantrel.h"
#include "wincom/CriticalSection.h"

namespace vantrel {

class SinkTable {
  public:
    static constexpr int kSlots = 5;

    SinkTable() noexcept = default;
    SinkTable(const SinkTable&) = delete;
    SinkTable& operator=(const SinkTable&) = delete;
    ~SinkTable();

    // First empty slot; AddRef. S_OK, E_FAIL when all five are taken, E_POINTER for null
    // (E_OUTOFMEMORY if the slot's record cannot be made). No duplicate check.
    HRESULT RegisterDataTransmitter(IDataTransmitter* sink) noexcept;
    // First slot holding exactly this pointer (no QueryInterface identity); its reference is
    // released. S_OK, E_FAIL when no slot holds it, E_POINTER for null.
    HRESULT UnregisterDataTransmitter(IDataTransmitter* sink) noexcept;

    // Transfer(data, cbData, FALSE) on every occupied slot in slot order, skipping the slots
    // whose object is skip (may be null), compared by COM identity (IUnknown), since one object's
    // interface pointers differ: the reader keeps a full-screen picture away from the sink it
    // took it from. Results are not looked at. Returns the number of calls.
    int Deliver(const void* data, uint32_t cbData, IUnknown* skip = nullptr) noexcept;
    // Flush() on every occupied slot in slot order. Returns the number of calls.
    int Flush() noexcept;

    int Count() const noexcept;

  private:
    // One registration: a slot's counted reference and the deliveries inside a call through it.
    struct Entry {
        IDataTransmitter* sink;
        int pins;
        bool registered;
    };

    template <typename Call>
    int ForEach(IUnknown* skip, Call call) noexcept;
    // Drops a pin; releases and frees the entry if it was the last use of an unregistered one.
    void Unpin(Entry* entry) noexcept;

    mutable CriticalSection lock_;
    Entry* slots_[kSlots] = {};  // guarded by lock_
};

}  // namespace vantrel
