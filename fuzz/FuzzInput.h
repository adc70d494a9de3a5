#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace quorval::fuzz {

// Writes a fuzzer's input to path; false when it cannot.
inline bool writeFile(const std::string &path, const std::uint8_t *data, std::size_t size)
{
    std::FILE *file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        return false;
    const bool ok = std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && ok;
}

} // namespace quorval::fuzz
