// PlaysTranscript FILE: "o TEXT" and "e TEXT" print a line to standard output or error, "p TEXT"
// prints without a line feed, "b HEX" prints one byte, "x STATUS" ends.
#include <cstdlib>
#include <fstream>
#include <string>

#include <unistd.h>

namespace {

void print(int descriptor, const std::string& text) {
    static_cast<void>(!write(descriptor, text.data(), text.size()));
}

}  // namespace

int main(int, char** argv) {
    std::ifstream transcript(argv[1]);
    for (std::string line; std::getline(transcript, line);) {
        const std::string text = line.size() > 2 ? line.substr(2) : std::string();
        switch (line.empty() ? ' ' : line[0]) {
            case 'o':
                print(1, text + "\n");
                break;
            case 'e':
                print(2, text + "\n");
                break;
            case 'p':
                print(1, text);
                break;
            case 'b':
                print(1, std::string(1, static_cast<char>(std::strtol(text.c_str(), nullptr, 16))));
                break;
            case 'x':
                return std::atoi(text.c_str());
            default:
                return 125;
        }
    }
    return 0;
}
