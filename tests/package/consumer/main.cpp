// A program that knows the library only through its installed package.
#include <talvex/Talvex.h>

#include <cstdio>

int main() {
    if (Basics::ToString(42) != "42") return 1;
    if (Basics::NodeDirectory() != "/sys/module/tarrow/parameters") return 1;
    std::printf("consumer linked against the installed Talvex package\n");
    return 0;
}
