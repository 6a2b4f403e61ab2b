// The picture a render object holds, read through IDesktopRender::GetCurrectImage (its
// BITMAPINFO, then its rows packed top row first) and turned into 32-bit pixels by GDI, whatever
// format the stream brought (16-bit 5-5-5 or masks, 8-bit with a colour table). And the report
// files of --report: BASE.txt with "key: value" lines, BASE.png with the picture.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Outcome.h"
#include "Vantrel.h"
#include "wincom/Png.h"

namespace vantrel::host {

// Fails (kExitFailed) while the render has no picture.
Outcome TakePicture(IDesktopRender* render, Pixels* out);

class Report {
  public:
    void Add(const std::string& key, const std::string& value) { lines_.emplace_back(key, value); }
    void Add(const std::string& key, unsigned long long value) { Add(key, std::to_string(value)); }
    // Writes base + ".txt", and base + ".png" when picture is given and not empty.
    Outcome Write(const std::string& base, const Pixels* picture) const;

  private:
    std::vector<std::pair<std::string, std::string>> lines_;
};

// "12.345" for a time in milliseconds.
std::string SecondsText(unsigned long long ms);
// "123.4 kB/s" (kB of 1000 bytes).
std::string RateText(unsigned long long bytes, unsigned long long ms);

}  // namespace vantrel::host
