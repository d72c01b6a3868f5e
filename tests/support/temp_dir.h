// A directory of the test's own, gone with all it holds at the end of the scope.

#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

class TempDir {
public:
    TempDir() : TempDir(std::filesystem::temp_directory_path()) {}
    explicit TempDir(const std::filesystem::path &parent)
    {
        std::string name = (parent / "stock.XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    ~TempDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

    // Writes a file and gives its path.
    std::string file(const std::string &name, const std::string &text) const
    {
        const std::string path = *this / name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

private:
    std::string path_;
};

// The same with no blank in its path, wherever temporary files go: words of delivery
// strings name files in it, and a blank ends a word.
class BlanklessDir : public TempDir {
public:
    BlanklessDir() : TempDir(std::filesystem::path("/tmp")) {}
};

// The text as one word of a shell's command.
inline std::string shell_word(const std::string &text)
{
    std::string word = "'";
    for (const char c : text)
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

// The bytes of a file; empty when it cannot be read.
inline std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}
