// vantrel.exe's command line: options in any order after the command's name, the rest
// positional, each command with its own table of options. The value parsers say in words what
// is wrong with a value; the options that several commands share (how a long-running command
// stops and reports, and where its window shows what) are parsed here once.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace vantrel::host {

struct OptionRule {
    const char* name;   // "--record"
    const char* value;  // shown in usage ("FILE"); nullptr for a flag
};

class Args {
  public:
    // argv[first..argc): the options of tables (the first match wins), the rest positional;
    // between minPositional and maxPositional of those. False with *error set otherwise.
    bool Parse(int argc, char** argv, int first, const std::vector<OptionRule>& table,
               size_t minPositional, size_t maxPositional, std::string* error);
    bool Has(const char* name) const;
    // The option's value, or fallback when it was not given.
    std::string Value(const char* name, const std::string& fallback = std::string()) const;
    const std::vector<std::string>& Positional() const noexcept { return positional_; }

  private:
    std::vector<std::pair<std::string, std::string>> options_;
    std::vector<std::string> positional_;
};

bool ParseInt(const std::string& text, const char* what, long min, long max, long* out,
              std::string* error);
// Seconds as "12", "12.5" or "1:02.5" (minutes and seconds); in milliseconds.
bool ParseSeconds(const std::string& text, const char* what, DWORD* ms, std::string* error);
// "x,y,width,height" (width and height above 0) as a RECT.
bool ParseRect(const std::string& text, const char* what, RECT* out, std::string* error);
// A dotted IPv4 address; *address as the socket layer holds it (inet_addr's value).
bool ParseIpv4(const std::string& text, const char* what, ULONG* address, std::string* error);
// "GROUP:PORT" with a multicast group (224.0.0.0 to 239.255.255.255) and a port of 1 to 65535.
bool ParseEndpoint(const std::string& text, std::string* group, USHORT* port, std::string* error);

// How a long-running command (share, view, play, publish, session-view) ends and reports:
// Ctrl+C, closing its window, --seconds or the named event of --stop-event stop it cleanly;
// --report BASE then writes BASE.txt (its figures) and, for a command with a window, BASE.png
// (the picture it shows).
struct RunOptions {
    DWORD seconds = 0;  // 0: until stopped
    std::string stopEvent;
    std::string report;
};
extern const std::vector<OptionRule> kRunOptionTable;
bool ParseRunOptions(const Args& args, RunOptions* out, std::string* error);

// Where a render window appears and which part of the desktop it shows.
struct ViewOptions {
    bool placed = false;
    RECT client{};        // --window: the picture area on the screen
    int scrollMode = -1;  // --view follow|scroll|fit (-1: the render's default, follow)
    bool sourceGiven = false;
    RECT source{};  // --source: this part of the desktop, in the fit mode
    std::string title;
};
extern const std::vector<OptionRule> kViewOptionTable;
bool ParseViewOptions(const Args& args, ViewOptions* out, std::string* error);

// The network options of the multicast commands: --interface IP (default 127.0.0.1).
extern const char kDefaultInterface[];

}  // namespace vantrel::host
