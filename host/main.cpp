// vantrel.exe, the sample classroom host. `vantrel demo` runs the end-to-end demo.
#include <cstdio>
#include <cstring>

#include "Demo.h"

int main(int argc, char** argv) {
    if (argc >= 2 && std::strcmp(argv[1], "demo") == 0) {
        return vantrel::host::Demo(stdout).Run();
    }
    std::fprintf(stderr, "usage: vantrel demo\n");
    return 2;
}
