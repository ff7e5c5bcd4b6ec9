// Counts the words of text files and prints the most frequent. The files' names are kept in a string
// list, their text is read into a pooled buffer, each word is gathered in a character buffer and finds
// its count in a tree that owns its words, and a priority queue puts them in order. The library reads the
// command line as well: getopt for the options, a glob pattern for the files.

#include "general/general.hpp"
#include "general/getopt.h"
#include "general/glob.h"
#include "general/strings.h"

#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

namespace {

constexpr const char *usage = "Usage: wordfreq [-n N] [--include GLOB] [FILE...]\n"
                              "Counts the words of the files, or of standard input, and prints the most frequent.\n"
                              "A word is a run of the letters A to Z; capitals count as small letters.\n"
                              "\n"
                              "  -n N                  print N words (default 10; 0 for all)\n"
                              "  -i, --include GLOB    read only files whose name, without folders, matches\n"
                              "  -h, --help\n"
                              "\n"
                              "FILE may be - for standard input. Exit status: 0, 1 if a file could not be read,\n"
                              "2 for a wrong command line.\n";

constexpr uint32_t chunkSize = 64 * 1024;
constexpr unsigned long long progressStep = 16ull * 1024 * 1024;

[[noreturn]] void fail(int status, const std::string &message)
{
    fprintf(stderr, "wordfreq: %s\n", message.c_str());
    exit(status);
}

using Words = general::Tree<std::string, unsigned long>;

/// The more frequent word comes out first; equally frequent ones in the order in which they are queued, which is that
/// of their bytes.
struct LessFrequent {
    bool operator()(const Words::iterator &a, const Words::iterator &b) const noexcept { return a.value() < b.value(); }
};

bool isCapital(char character)
{
    return character >= 'A' && character <= 'Z';
}

bool isLetter(char character)
{
    return isCapital(character) || (character >= 'a' && character <= 'z');
}

class WordCounter {
public:
    void readStream(FILE *stream)
    {
        auto memory = general::check(chunks_.grab(chunkSize));
        auto *chunk = static_cast<char *>(memory.get());
        size_t length;
        while ((length = fread(chunk, 1, chunkSize, stream)) > 0) {
            readChunk(chunk, chunk + length);
            bytes_ += length;
            showProgress();
        }
        endWord();
    }

    /// Prints the first `limit` words, 0 for all, in the manner of `uniq -c`.
    void print(uint32_t limit) const
    {
        general::PriorityQueue<Words::iterator, LessFrequent> ranking;
        for (auto word = words_.begin(); word != words_.end(); ++word) {
            general::check(ranking.push(word));
            if (limit != 0)
                ranking.erase(limit).ignore(); // there is at most one too many
        }
        while (auto word = ranking.pop())
            printf("%7lu %s\n", word->value(), word->key().data());
    }

    void endProgress() const
    {
        if (progressShown_)
            fprintf(stderr, "\r%40s\r", "");
    }

private:
    /// A run of letters is appended to the word as a whole; it may go on in the next chunk.
    void readChunk(char *character, const char *end)
    {
        while (character != end) {
            char *run = character;
            for (; character != end && isLetter(*character); ++character)
                if (isCapital(*character))
                    *character = static_cast<char>(*character - 'A' + 'a');
            general::check(word_.append({run, static_cast<size_t>(character - run)}));
            if (character == end)
                return;
            endWord();
            ++character;
        }
    }

    void endWord()
    {
        if (word_.empty())
            return;
        *static_cast<char *>(general::check(word_.extend(1))) = '\0';
        ++general::check(words_.try_emplace(word_.view().data())).value();
        general::check(word_.clear());
    }

    void showProgress()
    {
        if (bytes_ < nextProgress_ || !isatty(fileno(stderr)))
            return;
        nextProgress_ = bytes_ + progressStep;
        progressShown_ = true;
        fprintf(stderr, "\r%lu MB read", static_cast<unsigned long>(bytes_ / 1000000));
    }

    Words words_ = general::check(Words());
    general::BufferPool chunks_ = general::check(general::BufferPool(1, chunkSize)); ///< what files are read into
    general::Buffer word_ = general::check(general::Buffer(64));                     ///< the word that is being read
    unsigned long long bytes_ = 0;
    unsigned long long nextProgress_ = progressStep;
    bool progressShown_ = false;
};

/// A file's name as it can be shown: control characters by their names.
std::string visible(const char *name)
{
    constexpr size_t longestName = 12; // bytes that one byte can become
    std::string text(strlen(name) * longestName + 1, '\0');
    strcntrl(text.data(), name);
    text.resize(strlen(text.c_str()));
    return text;
}

bool readFile(WordCounter &counter, const char *name)
{
    if (strcmp(name, "-") == 0) {
        counter.readStream(stdin);
        return true;
    }
    FILE *file = fopen(name, "rb");
    if (file == nullptr) {
        fprintf(stderr, "wordfreq: cannot read %s: %s\n", visible(name).c_str(), strerror(errno));
        return false;
    }
    counter.readStream(file);
    bool complete = ferror(file) == 0;
    if (!complete)
        fprintf(stderr, "wordfreq: cannot read all of %s: %s\n", visible(name).c_str(), strerror(errno));
    fclose(file);
    return complete;
}

uint32_t parseLimit(const char *text)
{
    char *end = nullptr;
    unsigned long limit = strtoul(text, &end, 10);
    if (*text < '0' || *text > '9' || *end != '\0')
        fail(2, "-n takes a number of words; see wordfreq --help");
    return limit > INT32_MAX ? INT32_MAX : static_cast<uint32_t>(limit);
}

const char *checkPattern(const char *pattern)
{
    int flags = 0;
    int status = GlobCheck(pattern, &flags);
    if (status != 0)
        fail(2, "--include " + visible(pattern) + ": " + GlobError(status));
    return pattern;
}

struct Options {
    uint32_t limit = 10;
    const char *include = "*";
};

/// Gives the options with long names the letters that getopt knows.
void shortenOptions(char **arguments)
{
    static char include[] = "-i";
    static char help[] = "-h";
    for (char **argument = arguments; *argument != nullptr && strcmp(*argument, "--") != 0; ++argument) {
        if (strcmp(*argument, "--include") == 0)
            *argument = include;
        else if (strcmp(*argument, "--help") == 0)
            *argument = help;
    }
}

/// Reads the options and leaves optind at the first file.
Options parseOptions(int argc, char **argv)
{
    Options options;
    shortenOptions(argv + 1);
    for (int option; (option = getopt(argc, argv, "n:i:h")) != -1;) {
        switch (option) {
        case 'n':
            options.limit = parseLimit(optarg);
            break;
        case 'i':
            options.include = checkPattern(optarg);
            break;
        case 'h':
            fputs(usage, stdout);
            exit(0);
        default:
            fail(2, "see wordfreq --help");
        }
    }
    return options;
}

bool isIncluded(const char *file, const char *pattern)
{
    const char *name = file + strlen(file);
    while (name != file && name[-1] != '/' && name[-1] != '\\')
        --name;
    return strcmp(file, "-") == 0 || GlobEval(name, pattern) != 0;
}

} // namespace

int main(int argc, char **argv)
try {
    Options options = parseOptions(argc, argv);
    general::StringList names;
    for (int i = optind; i < argc; ++i)
        if (isIncluded(argv[i], options.include) && names.push_back(argv[i]) == nullptr)
            throw std::bad_alloc();
    if (optind >= argc && names.push_back("-") == nullptr)
        throw std::bad_alloc();
    // Text is taken and given byte for byte.
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);

    WordCounter counter;
    bool complete = true;
    for (std::string_view file : names)
        complete = readFile(counter, file.data()) && complete;
    counter.endProgress();
    counter.print(options.limit);
    return complete ? 0 : 1;
} catch (const std::exception &) { // the only thing that calls of the library can want here
    fail(1, "not enough memory");
}
