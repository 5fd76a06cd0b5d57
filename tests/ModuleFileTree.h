// Module files as the tests make them: ELF objects of either class with a .modinfo section.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

// Sections: null, .text, .modinfo, .shstrtab; their headers stand at the end, as compilers put
// them.
class CModuleImage
{
public:
    static constexpr unsigned int Sections = 4;
    static constexpr unsigned int Info = 2;
    static constexpr unsigned int Names = 3;

    CModuleImage(bool wide, const std::string& info) : m_Wide(wide)
    {
        const std::string names("\0.text\0.modinfo\0.shstrtab\0", 26);
        m_Bytes.assign(wide ? 64 : 52, '\0');
        m_Bytes.replace(0, 7,
                        std::string("\x7F"
                                    "ELF") +
                            (wide ? '\2' : '\1') + "\1\1");
        const std::size_t infoAt = Add(info);
        const std::size_t namesAt = Add(names);
        m_Bytes.resize((m_Bytes.size() + 7) / 8 * 8);
        m_Table = m_Bytes.size();
        m_Bytes.resize(m_Table + Sections * HeaderSize());
        Number(wide ? 40 : 32, m_Table, wide ? 8 : 4);
        Number(wide ? 60 : 48, Sections, 2);
        Number(wide ? 62 : 50, Names, 2);
        Section(1, 1, 0, 0);
        Section(Info, 7, infoAt, info.size());
        Section(Names, 16, namesAt, names.size());
    }

    CModuleImage& Number(std::size_t at, std::uint64_t value, std::size_t width)
    {
        for (std::size_t byte = 0; byte < width; ++byte)
            m_Bytes[at + byte] = static_cast<char>(value >> (8 * byte));
        return *this;
    }

    // Where a section's header stands.
    std::size_t Header(unsigned int section) const { return m_Table + section * HeaderSize(); }
    std::size_t OffsetField(unsigned int section) const
    {
        return Header(section) + (m_Wide ? 24 : 16);
    }
    std::size_t SizeField(unsigned int section) const
    {
        return Header(section) + (m_Wide ? 32 : 20);
    }
    std::size_t Width() const { return m_Wide ? 8 : 4; }

    void Section(unsigned int section, std::uint64_t name, std::uint64_t at, std::uint64_t size)
    {
        Number(Header(section), name, 4);
        Number(OffsetField(section), at, Width());
        Number(SizeField(section), size, Width());
    }

    std::string m_Bytes;

private:
    std::size_t HeaderSize() const { return m_Wide ? 64 : 40; }
    std::size_t Add(const std::string& content)
    {
        const std::size_t at = m_Bytes.size();
        m_Bytes += content;
        return at;
    }

    bool m_Wide;
    std::size_t m_Table = 0;
};
