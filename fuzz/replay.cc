/// A fuzzer's check without the fuzzer, as a quick test: over the inputs in a folder, and over changed copies of them
/// that are the same in each run.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int, char** argv) {
    std::vector<std::string> inputs;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    std::minstd_rand random;
    for (int i = 0; i < 40000; ++i) {
        std::string input = inputs[static_cast<std::size_t>(i) % inputs.size()];
        for (std::size_t changes = std::min(i / 500, 3); changes > 0 && !input.empty(); --changes) {
            const std::string& other = inputs[random() % inputs.size()];
            const std::size_t at = random() % input.size(), from = random() % (other.size() + 1);
            input.replace(at, random() % 4, other.substr(from, random() % 12));
        }
        try {
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
        } catch (const std::exception& broken) {
            std::cerr << "does not hold: " << broken.what() << ", for the input: " << input << "\n";
            return 1;
        }
    }
}
