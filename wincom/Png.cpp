// PNG through WIC (see Png.h).
#include "Png.h"

#include <wincodec.h>

#include <algorithm>
#include <string>

#include "ComPtr.h"
#include "Result.h"

namespace vantrel {

namespace {

std::wstring Wide(const char* text) {
    const int n = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    std::wstring w(n > 0 ? n : 1, L'\0');
    if (n > 0)
        MultiByteToWideChar(CP_ACP, 0, text, -1, &w[0], n);
    w.resize(w.size() - 1);
    return w;
}

HRESULT Factory(ComPtr<IWICImagingFactory>* factory) noexcept {
    return CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                            IID_IWICImagingFactory, factory->PutVoid());
}

HRESULT OpenStream(IWICImagingFactory* factory, const char* path, DWORD access,
                   ComPtr<IWICStream>* stream) noexcept {
    try {
        RETURN_IF_FAILED(factory->CreateStream(stream->Put()));
        return (*stream)->InitializeFromFilename(Wide(path).c_str(), access);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
}

}  // namespace

Pixels Pixels::Crop(const RECT& r) const {
    Pixels out;
    const LONG left = std::max<LONG>(r.left, 0), top = std::max<LONG>(r.top, 0);
    const LONG right = std::min<LONG>(r.right, width), bottom = std::min<LONG>(r.bottom, height);
    if (right <= left || bottom <= top)
        return out;
    out.width = right - left;
    out.height = bottom - top;
    out.data.reserve(static_cast<size_t>(out.width) * out.height);
    for (LONG y = top; y < bottom; ++y) {
        const uint32_t* row = &data[static_cast<size_t>(y) * width];
        out.data.insert(out.data.end(), row + left, row + right);
    }
    return out;
}

HRESULT WritePng(const char* path, const Pixels& pixels) noexcept {
    RETURN_HR_IF(E_INVALIDARG,
                 pixels.width <= 0 || pixels.height <= 0 ||
                     pixels.data.size() != static_cast<size_t>(pixels.width) * pixels.height);
    ComPtr<IWICImagingFactory> factory;
    ComPtr<IWICStream> stream;
    ComPtr<IWICBitmapEncoder> encoder;
    ComPtr<IWICBitmapFrameEncode> frame;
    RETURN_IF_FAILED(Factory(&factory));
    RETURN_IF_FAILED(OpenStream(factory.Get(), path, GENERIC_WRITE, &stream));
    RETURN_IF_FAILED(factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, encoder.Put()));
    RETURN_IF_FAILED(encoder->Initialize(stream.Get(), WICBitmapEncoderNoCache));
    RETURN_IF_FAILED(encoder->CreateNewFrame(frame.Put(), nullptr));
    RETURN_IF_FAILED(frame->Initialize(nullptr));
    RETURN_IF_FAILED(frame->SetSize(pixels.width, pixels.height));
    WICPixelFormatGUID format = GUID_WICPixelFormat24bppBGR;
    RETURN_IF_FAILED(frame->SetPixelFormat(&format));
    RETURN_HR_IF(E_UNEXPECTED, !IsEqualGUID(format, GUID_WICPixelFormat24bppBGR));
    const UINT stride = (pixels.width * 3 + 3) & ~3u;
    std::vector<BYTE> rows;
    try {
        rows.resize(static_cast<size_t>(stride) * pixels.height);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
    for (int y = 0; y < pixels.height; ++y) {
        BYTE* out = &rows[static_cast<size_t>(y) * stride];
        for (int x = 0; x < pixels.width; ++x, out += 3) {
            const uint32_t p = pixels.At(x, y);
            out[0] = static_cast<BYTE>(p);
            out[1] = static_cast<BYTE>(p >> 8);
            out[2] = static_cast<BYTE>(p >> 16);
        }
    }
    RETURN_IF_FAILED(
        frame->WritePixels(pixels.height, stride, static_cast<UINT>(rows.size()), rows.data()));
    RETURN_IF_FAILED(frame->Commit());
    return encoder->Commit();
}

HRESULT ReadPng(const char* path, Pixels* pixels) noexcept {
    RETURN_HR_IF(E_POINTER, !pixels);
    ComPtr<IWICImagingFactory> factory;
    ComPtr<IWICStream> stream;
    ComPtr<IWICBitmapDecoder> decoder;
    ComPtr<IWICBitmapFrameDecode> frame;
    ComPtr<IWICFormatConverter> converter;
    RETURN_IF_FAILED(Factory(&factory));
    RETURN_IF_FAILED(OpenStream(factory.Get(), path, GENERIC_READ, &stream));
    RETURN_IF_FAILED(factory->CreateDecoderFromStream(
        stream.Get(), nullptr, WICDecodeMetadataCacheOnDemand, decoder.Put()));
    RETURN_IF_FAILED(decoder->GetFrame(0, frame.Put()));
    RETURN_IF_FAILED(factory->CreateFormatConverter(converter.Put()));
    RETURN_IF_FAILED(converter->Initialize(frame.Get(), GUID_WICPixelFormat32bppBGR,
                                           WICBitmapDitherTypeNone, nullptr, 0,
                                           WICBitmapPaletteTypeCustom));
    UINT width = 0, height = 0;
    RETURN_IF_FAILED(converter->GetSize(&width, &height));
    RETURN_HR_IF(E_FAIL, width == 0 || height == 0 || width > 16384 || height > 16384);
    Pixels read;
    try {
        read.data.resize(static_cast<size_t>(width) * height);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
    read.width = static_cast<int>(width);
    read.height = static_cast<int>(height);
    RETURN_IF_FAILED(converter->CopyPixels(nullptr, width * 4,
                                           static_cast<UINT>(read.data.size() * 4),
                                           reinterpret_cast<BYTE*>(read.data.data())));
    for (uint32_t& p : read.data)
        p &= 0x00FFFFFF;
    *pixels = std::move(read);
    return S_OK;
}

}  // namespace vantrel
