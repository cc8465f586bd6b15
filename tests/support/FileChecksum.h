// A file's bytes reduced to one 64-bit FNV-1a value, to show that a run left a file
// exactly as it was. Anything but a readable regular file gives 0.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace testsupport {

inline std::uint64_t fileChecksum(const std::string& path)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) return 0;
    std::ifstream file(path, std::ios::binary);
    if (!file) return 0;
    std::uint64_t hash = 14695981039346656037ull;
    for (std::istreambuf_iterator<char> it(file), end; it != end; ++it) {
        hash ^= static_cast<unsigned char>(*it);
        hash *= 1099511628211ull;
    }
    return hash;
}

}  // namespace testsupport
