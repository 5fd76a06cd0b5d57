// What bench/Start.cpp starts.
#include <iostream>

#ifdef WITH_VORNEX
#include <vornex/Numbers.h>
#endif

int main()
{
#ifdef WITH_VORNEX
    std::cout << VornEx::atoui32("1", 10);
#else
    std::cout << 1;
#endif
    return 0;
}
