// The classroom demo's driver (see Demo.h).
#include "Demo.h"

#include <windows.h>
#include <objbase.h>

#include <new>
#include <string>

#include "CaptureStep.h"
#include "IpcStep.h"

namespace vantrel::host {

namespace {

// CoInitializeEx / CoUninitialize for the demo's thread.
class ComApartment {
  public:
    ComApartment() noexcept : hr_(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
    ~ComApartment() {
        if (SUCCEEDED(hr_))
            CoUninitialize();
    }
    HRESULT Result() const noexcept { return hr_; }

  private:
    HRESULT hr_;
};

int Fail(std::FILE* out, const std::string& why) {
    std::fprintf(out, "demo: FAIL %s\n", why.c_str());
    std::fflush(out);
    return 1;
}

}  // namespace

int Demo::Run() noexcept {
    try {
        ComApartment com;
        if (FAILED(com.Result()))
            return Fail(out_, "CoInitializeEx failed");

        // Later stages (render, record, cast) are appended here, in the order a classroom
        // wires them.
        std::vector<std::unique_ptr<DemoStep>> steps;
        steps.push_back(std::make_unique<CaptureStep>());
        steps.push_back(std::make_unique<IpcStep>());

        for (const auto& step : steps) {
            std::fprintf(out_, "%s\n", step->Name());
            std::string failure;
            const bool passed = step->Run(out_, &failure);
            std::fflush(out_);
            if (!passed)
                return Fail(out_, std::string(step->Name()) + ": " + failure);
        }
        std::fprintf(out_, "demo: PASS\n");
        std::fflush(out_);
        return 0;
    } catch (const std::bad_alloc&) {
        return Fail(out_, "out of memory");
    }
}

}  // namespace vantrel::host
