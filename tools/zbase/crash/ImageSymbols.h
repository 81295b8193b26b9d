#pragma once

#include <cstdint>
#include <string>

/// What identifies an image of 64-bit Windows; both are 0 for what is none.
struct ImageIdentity {
    std::uint32_t stamp = 0;
    std::uint32_t size = 0;  // in memory

    bool operator==(const ImageIdentity&) const = default;
};

ImageIdentity IdentityOfImage(const std::string& image);

/// The name of the PDB file that an image says it has, without a folder; empty if it has none.
std::string PdbOfImage(const std::string& image);

/// A Breakpad symbol file of an image of 64-bit Windows, whose content this is: the functions with their
/// lines that its PDB file `pdb` knows, if that is not empty and the image's own; those that the linker left
/// the names of or that are exported; and how every function is unwound. `name` and `id` are those of the
/// module in the dump. Empty for what is no such image.
std::string SymbolsOfImage(const std::string& image, const std::string& pdb, const std::string& name,
                           const std::string& id);
