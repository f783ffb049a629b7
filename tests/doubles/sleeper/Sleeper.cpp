// A program that only waits, to be ended by the process tests. It gives up
// by itself after two minutes so a failed test leaves nothing running long.
#include <windows.h>

int main() {
    Sleep(120000);
    return 0;
}
