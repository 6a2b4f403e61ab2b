// The detector's pace comes from its own registry value; out-of-range values are clamped.
#include <windows.h>

#include <gtest/gtest.h>

#include "CaptureSession.h"

using vantrel::pavlex::CaptureSession;

TEST(GrabRate, RegistryValueSetsTheIntervalWithinLimits) {
    const char* path = "Software\\Vantrel\\Pavlex";
    RegDeleteKeyA(HKEY_LOCAL_MACHINE, path);
    EXPECT_EQ(33u, CaptureSession::ReadGrabInterval());
    HKEY key = nullptr;
    ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExA(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_WRITE,
                                             nullptr, &key, nullptr));
    const struct {
        DWORD rate, interval;
    } cases[] = {{5, 200}, {30, 33}, {100, 10}, {5000, 10}, {0, 33}};
    for (const auto& c : cases) {
        RegSetValueExA(key, "GrabsPerSecond", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&c.rate),
                       sizeof c.rate);
        EXPECT_EQ(c.interval, CaptureSession::ReadGrabInterval()) << c.rate;
    }
    RegSetValueExA(key, "GrabsPerSecond", 0, REG_SZ, reinterpret_cast<const BYTE*>("5"), 2);
    EXPECT_EQ(33u, CaptureSession::ReadGrabInterval());
    RegCloseKey(key);
    RegDeleteKeyA(HKEY_LOCAL_MACHINE, path);
}
