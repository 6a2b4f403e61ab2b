// Frame payloads like the ones Vantrel's encoder hands the codec: a BITMAPINFOHEADER of a
// 1920 x 1080 desktop (plus masks for 5-6-5), then the unpadded 16-bit rows of one band.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace screentest {

enum class Content { Text, Flat, Gradient, Photo, Photo565, Random };

// A payload of band width x rows; random content ignores the header and fills cb bytes.
std::vector<std::uint8_t> MakePayload(Content content, int width, int rows, unsigned seed);
std::vector<std::uint8_t> RandomBytes(std::size_t cb, unsigned seed);

}  // namespace screentest
