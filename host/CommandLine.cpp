// vantrel.exe's command line (see CommandLine.h).
#include "CommandLine.h"

#include <winsock2.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace vantrel::host {

const char kDefaultInterface[] = "127.0.0.1";

const std::vector<OptionRule> kRunOptionTable = {
    {"--seconds", "N"}, {"--stop-event", "NAME"}, {"--report", "BASE"}};

const std::vector<OptionRule> kViewOptionTable = {
    {"--window", "X,Y,W,H"}, {"--view", "follow|scroll|fit"}, {"--source", "X,Y,W,H"}};

bool Args::Parse(int argc, char** argv, int first, const std::vector<OptionRule>& table,
                 size_t minPositional, size_t maxPositional, std::string* error) {
    for (int i = first; i < argc; ++i) {
        const std::string word = argv[i];
        if (word.size() < 3 || word.compare(0, 2, "--") != 0) {
            positional_.push_back(word);
            continue;
        }
        const OptionRule* rule = nullptr;
        for (const OptionRule& s : table)
            if (word == s.name) {
                rule = &s;
                break;
            }
        if (!rule) {
            *error = "unknown option " + word;
            return false;
        }
        if (Has(rule->name)) {
            *error = word + " is given twice";
            return false;
        }
        if (rule->value && i + 1 >= argc) {
            *error = word + " needs a value (" + rule->value + ")";
            return false;
        }
        options_.emplace_back(word, rule->value ? argv[++i] : "");
    }
    if (positional_.size() < minPositional) {
        *error = "too few arguments";
        return false;
    }
    if (positional_.size() > maxPositional) {
        *error = "unexpected argument " + positional_[maxPositional];
        return false;
    }
    return true;
}

bool Args::Has(const char* name) const {
    for (const auto& option : options_)
        if (option.first == name)
            return true;
    return false;
}

std::string Args::Value(const char* name, const std::string& fallback) const {
    for (const auto& option : options_)
        if (option.first == name)
            return option.second;
    return fallback;
}

bool ParseInt(const std::string& text, const char* what, long min, long max, long* out,
              std::string* error) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end || errno || value < min || value > max) {
        *error = std::string(what) + " must be a whole number from " + std::to_string(min) +
                 " to " + std::to_string(max) + ", not \"" + text + "\"";
        return false;
    }
    *out = value;
    return true;
}

bool ParseSeconds(const std::string& text, const char* what, DWORD* ms, std::string* error) {
    const size_t colon = text.find(':');
    const std::string minutes = colon == std::string::npos ? "0" : text.substr(0, colon);
    const std::string seconds = colon == std::string::npos ? text : text.substr(colon + 1);
    char* end1 = nullptr;
    char* end2 = nullptr;
    const double m = std::strtod(minutes.c_str(), &end1);
    const double s = std::strtod(seconds.c_str(), &end2);
    const double total = (m * 60 + s) * 1000;
    if (text.empty() || seconds.empty() || minutes.empty() || *end1 || *end2 || m < 0 || s < 0 ||
        total > 4.0e9) {
        *error =
            std::string(what) + " must be a time in seconds (12.5 or 1:02.5), not \"" + text + "\"";
        return false;
    }
    *ms = static_cast<DWORD>(total + 0.5);
    return true;
}

bool ParseRect(const std::string& text, const char* what, RECT* out, std::string* error) {
    long v[4];
    const char* p = text.c_str();
    for (int i = 0; i < 4; ++i) {
        char* end = nullptr;
        v[i] = std::strtol(p, &end, 10);
        const bool last = i == 3;
        if (end == p || (last ? *end != '\0' : *end != ',')) {
            *error = std::string(what) + " must be X,Y,WIDTH,HEIGHT, not \"" + text + "\"";
            return false;
        }
        p = end + 1;
    }
    if (v[2] <= 0 || v[3] <= 0 || v[2] > 32767 || v[3] > 32767) {
        *error = std::string(what) + " needs a width and a height above 0";
        return false;
    }
    *out = RECT{v[0], v[1], v[0] + v[2], v[1] + v[3]};
    return true;
}

bool ParseIpv4(const std::string& text, const char* what, ULONG* address, std::string* error) {
    unsigned a, b, c, d;
    char tail;
    if (std::sscanf(text.c_str(), "%u.%u.%u.%u%c", &a, &b, &c, &d, &tail) != 4 || a > 255 ||
        b > 255 || c > 255 || d > 255) {
        *error =
            std::string(what) + " must be an IPv4 address such as 127.0.0.1, not \"" + text + "\"";
        return false;
    }
    *address = htonl(a << 24 | b << 16 | c << 8 | d);
    return true;
}

bool ParseEndpoint(const std::string& text, std::string* group, USHORT* port, std::string* error) {
    const size_t colon = text.rfind(':');
    ULONG address = 0;
    long number = 0;
    if (colon == std::string::npos) {
        *error =
            "the session must be GROUP:PORT, for example 239.255.42.1:5000, not \"" + text + "\"";
        return false;
    }
    if (!ParseIpv4(text.substr(0, colon), "the group", &address, error) ||
        !ParseInt(text.substr(colon + 1), "the port", 1, 65535, &number, error))
        return false;
    if ((ntohl(address) >> 28) != 0xE) {
        *error = "the group " + text.substr(0, colon) +
                 " is not a multicast address (224.0.0.0 to 239.255.255.255)";
        return false;
    }
    *group = text.substr(0, colon);
    *port = static_cast<USHORT>(number);
    return true;
}

bool ParseRunOptions(const Args& args, RunOptions* out, std::string* error) {
    long seconds = 0;
    if (args.Has("--seconds") &&
        !ParseInt(args.Value("--seconds"), "--seconds", 1, 24 * 3600, &seconds, error))
        return false;
    out->seconds = static_cast<DWORD>(seconds);
    out->stopEvent = args.Value("--stop-event");
    out->report = args.Value("--report");
    return true;
}

bool ParseViewOptions(const Args& args, ViewOptions* out, std::string* error) {
    if (args.Has("--window") && !ParseRect(args.Value("--window"), "--window", &out->client, error))
        return false;
    out->placed = args.Has("--window");
    if (args.Has("--view")) {
        const std::string mode = args.Value("--view");
        static const char* const kModes[] = {"fit", "follow", "scroll"};  // RSM_ values 0, 1, 2
        out->scrollMode = -1;
        for (int i = 0; i < 3; ++i)
            if (mode == kModes[i])
                out->scrollMode = i;
        if (out->scrollMode < 0) {
            *error = "--view must be follow, scroll or fit, not \"" + mode + "\"";
            return false;
        }
    }
    if (args.Has("--source")) {
        if (!ParseRect(args.Value("--source"), "--source", &out->source, error))
            return false;
        if (out->scrollMode > 0) {
            *error = "--source shows a fixed part of the desktop: it goes with --view fit only";
            return false;
        }
        out->sourceGiven = true;
        out->scrollMode = 0;
    }
    return true;
}

}  // namespace vantrel::host
