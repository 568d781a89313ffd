// A fresh folder under the system's temporary folder for tests that write files; it is removed
// with everything in it when the object goes out of scope.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace riffle::testsupport {

struct Scratch {
    std::filesystem::path dir;
    Scratch() {
        std::string name = (std::filesystem::temp_directory_path() / "riffle-test-XXXXXX").string();
        dir = ::mkdtemp(name.data());
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch() { std::filesystem::remove_all(dir); }
    // The path of `name` in the folder, written with `text` when that is not empty.
    [[nodiscard]] std::filesystem::path file(const std::string& name,
                                             const std::string& text = {}) const {
        if (!text.empty()) std::ofstream(dir / name) << text;
        return dir / name;
    }
};

} // namespace riffle::testsupport
