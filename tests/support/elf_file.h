// A 64-bit ELF file, read whole: what its segments, sections and dynamic entries say.
#pragma once

#include <elf.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <vector>

class ElfFile {
  public:
    // Empty, and so no ELF file, when `path` cannot be read.
    explicit ElfFile(const std::string& path) {
        std::ifstream file(path, std::ios::binary | std::ios::ate);
        if (!file) return;
        mBytes.resize(static_cast<size_t>(file.tellg()));
        file.seekg(0).read(mBytes.data(), static_cast<std::streamsize>(mBytes.size()));
    }

    // A shared library of this class of machine; without it the other questions have no answer.
    bool IsSharedLibrary() const {
        return mBytes.size() >= sizeof(Elf64_Ehdr) &&
               std::memcmp(mBytes.data(), ELFMAG, SELFMAG) == 0 && mBytes[EI_CLASS] == ELFCLASS64 &&
               mBytes[EI_DATA] == ELFDATA2LSB && Header().e_type == ET_DYN;
    }

    std::vector<Elf64_Phdr> Segments() const {
        return Table<Elf64_Phdr>(Header().e_phoff, Header().e_phnum);
    }

    std::vector<Elf64_Shdr> Sections(uint32_t type) const {
        std::vector<Elf64_Shdr> found;
        for (const auto& section : AllSections()) {
            if (section.sh_type == type) found.push_back(section);
        }
        return found;
    }

    // The names of the dynamic symbols that the file defines, and of those that it takes from
    // others.
    std::set<std::string> DefinedSymbols() const { return Symbols(true); }
    std::set<std::string> UndefinedSymbols() const { return Symbols(false); }

    // The values of a dynamic tag.
    std::vector<uint64_t> Dynamic(int64_t tag) const {
        std::vector<uint64_t> values;
        for (const Elf64_Shdr& section : Sections(SHT_DYNAMIC)) {
            for (const auto& entry :
                 Table<Elf64_Dyn>(section.sh_offset, section.sh_size / sizeof(Elf64_Dyn))) {
                if (entry.d_tag == tag) values.push_back(entry.d_un.d_val);
            }
        }
        return values;
    }

    // The values of a dynamic tag that names strings, such as DT_NEEDED.
    std::vector<std::string> DynamicStrings(int64_t tag) const {
        std::vector<std::string> strings;
        const Elf64_Shdr table = AllSections().at(Sections(SHT_DYNAMIC).at(0).sh_link);
        for (const uint64_t offset : Dynamic(tag)) {
            strings.emplace_back(mBytes.data() + table.sh_offset + offset);
        }
        return strings;
    }

    // All bits of a dynamic tag that holds flags.
    uint64_t DynamicFlags(int64_t tag) const {
        uint64_t flags = 0;
        for (const uint64_t value : Dynamic(tag)) flags |= value;
        return flags;
    }

  private:
    Elf64_Ehdr Header() const { return Table<Elf64_Ehdr>(0, 1).front(); }

    std::vector<Elf64_Shdr> AllSections() const {
        return Table<Elf64_Shdr>(Header().e_shoff, Header().e_shnum);
    }

    std::set<std::string> Symbols(bool defined) const {
        std::set<std::string> names;
        const auto sections = AllSections();
        for (const Elf64_Shdr& section : Sections(SHT_DYNSYM)) {
            const Elf64_Shdr& strings = sections[section.sh_link];
            for (const auto& symbol :
                 Table<Elf64_Sym>(section.sh_offset, section.sh_size / sizeof(Elf64_Sym))) {
                if (symbol.st_name == 0 || (symbol.st_shndx != SHN_UNDEF) != defined) continue;
                names.insert(mBytes.data() + strings.sh_offset + symbol.st_name);
            }
        }
        return names;
    }

    template <typename T>
    std::vector<T> Table(size_t offset, size_t count) const {
        std::vector<T> rows(count);
        if (count != 0) std::memcpy(rows.data(), mBytes.data() + offset, count * sizeof(T));
        return rows;
    }

    std::vector<char> mBytes;
};
