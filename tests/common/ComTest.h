// What the tests of COM objects share: a single-threaded apartment per test, as a host's UI
// thread has (the render class is apartment-threaded), objects made by their registered class
// objects, and a render's picture as GetCurrectImage hands it out.
#pragma once

#include <windows.h>
#include <objbase.h>

#include <vector>

#include <gtest/gtest.h>

#include "Vantrel.h"
#include "wincom/ComPtr.h"

namespace vantrel::test {

class ComTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    }
    void TearDown() override { CoUninitialize(); }
};

// An object of the registered class clsid, asked for T.
template <typename T>
ComPtr<T> Create(REFCLSID clsid) {
    ComPtr<T> object;
    EXPECT_EQ(S_OK, CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, __uuidof(T),
                                     object.PutVoid()));
    return object;
}

// The picture as GetCurrectImage hands it out (BITMAPINFO, then unpadded rows); empty without
// one.
inline std::vector<BYTE> CurrentImage(IDesktopRender* render) {
    unsigned long size = 0;
    if (render->GetCurrectImage(&size, nullptr) != S_OK)
        return {};
    std::vector<BYTE> out(size);
    if (render->GetCurrectImage(&size, out.data()) != S_OK)
        return {};
    return out;
}

}  // namespace vantrel::test
