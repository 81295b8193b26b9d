#pragma once

#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

namespace test {

/// Removes a folder in which an ending process may still move and make files.
inline void RemoveFolder(const std::filesystem::path& folder) {
    std::error_code failure;
    for (int tries = 0; tries != 500; ++tries) {
        std::filesystem::remove_all(folder, failure);
        if (!failure) return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

}  // namespace test
