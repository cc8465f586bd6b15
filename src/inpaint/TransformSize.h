// The transform length for a job: the smallest power of two of at least n, and at
// least 16, the signal library's smallest size. Pure; any thread.
#pragma once

inline int transformSizeFor(int n)
{
    int size = 16;
    while (size < n) size *= 2;
    return size;
}
