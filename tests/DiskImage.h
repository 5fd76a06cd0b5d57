// Disk images put together by hand, for tables that no partitioning tool would write.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

struct CDiskImage
{
    explicit CDiskImage(std::size_t sectors) : m_Bytes(512 * sectors) {}

    // Entry `index` of the boot record in a sector, which becomes one by its signature.
    CDiskImage& Entry(std::size_t sector, std::size_t index, std::uint8_t type, std::uint32_t start,
                      std::uint32_t count)
    {
        Number(512 * sector + 446 + 16 * index + 4, type, 1);
        Number(512 * sector + 446 + 16 * index + 8, start, 4);
        Number(512 * sector + 446 + 16 * index + 12, count, 4);
        return Number(512 * sector + 510, 0xAA55, 2);
    }

    // A protective record and the header of a GUID table.
    CDiskImage& GptHeader(std::uint32_t entries, std::uint32_t entrySize)
    {
        Entry(0, 0, 0xEE, 1, 0xFFFFFFFF);
        Number(512 + 80, entries, 4);
        return Number(512 + 84, entrySize, 4);
    }

    CDiskImage& GptEntry(std::size_t offset, std::uint8_t kind, std::uint64_t first,
                         std::uint64_t last)
    {
        Number(offset, kind, 1);
        Number(offset + 32, first, 8);
        return Number(offset + 40, last, 8);
    }

    // A little-endian number; what lies outside the image is dropped.
    CDiskImage& Number(std::size_t offset, std::uint64_t value, std::size_t width)
    {
        for (; width > 0 && offset < m_Bytes.size(); --width, value >>= 8U)
            m_Bytes[offset++] = static_cast<std::uint8_t>(value);
        return *this;
    }

    void Write(const std::string& path) const
    {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(m_Bytes.data()),
                   static_cast<std::streamsize>(m_Bytes.size()));
    }

    std::vector<std::uint8_t> m_Bytes;
};
