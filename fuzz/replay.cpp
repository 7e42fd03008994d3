// Runs a fuzzer's property over its seeds and over changes of them, the same ones each time.
//
// Usage: PROGRAM FOLDER [ROUNDS]

#include <algorithm>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::string_view kTelling = "<>/=\"'`&;%?!-#:$\\[](){} \t\r\n\0aE0\x7F\x80\xC3\xE4\xED\xF0\xFF";

class Changer {
public:
    explicit Changer(const std::vector<std::string>& seeds) : seeds_(seeds) {}

    std::string Next() {
        std::string text = AnySeed();
        for (auto changes = Below(4) + 1; changes > 0; --changes) Change(text);
        return text;
    }

private:
    std::size_t Below(std::size_t bound) { return bound == 0 ? 0 : random_() % bound; }
    const std::string& AnySeed() { return seeds_[Below(seeds_.size())]; }

    void Change(std::string& text) {
        const auto at = Below(text.size() + 1);
        const auto length = std::min(Below(8) + 1, text.size() - at);
        switch (Below(6)) {
            case 0:
                text.erase(at, length);
                break;
            case 1:
                text.insert(at, 1, kTelling[Below(kTelling.size())]);
                break;
            case 2:
                text.replace(at, length, length, kTelling[Below(kTelling.size())]);
                break;
            case 3:
                text.insert(at, text.substr(Below(text.size() + 1), Below(40)));
                break;
            case 4: {
                const auto& other = AnySeed();
                text.insert(at, other.substr(Below(other.size() + 1), Below(40)));
                break;
            }
            default:
                text.resize(at);
        }
    }

    const std::vector<std::string>& seeds_;
    std::minstd_rand random_;
};

void Run(const std::string& text) {
    try {
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    } catch (const std::exception& error) {
        std::ofstream("failed-input", std::ios::binary) << text;
        throw std::runtime_error(std::string(error.what()) + " with what is in failed-input now:\n" + text);
    }
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc < 2) throw std::invalid_argument("name a folder of seeds");
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    std::vector<std::string> seeds;
    for (const auto& path : paths) {
        std::ifstream file(path, std::ios::binary);
        seeds.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    if (seeds.empty()) throw std::invalid_argument("the folder is empty");
    for (const auto& seed : seeds) Run(seed);
    Changer changer(seeds);
    const int rounds = argc > 2 ? std::stoi(argv[2]) : 3000;
    for (int round = 0; round < rounds; ++round) Run(changer.Next());
    std::cout << seeds.size() << " seeds and " << rounds << " changes of them\n";
    return 0;
} catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
}
