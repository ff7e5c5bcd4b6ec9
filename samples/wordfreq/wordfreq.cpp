// Counts the words of text files and prints the most frequent: a string-keyed tree finds each word's
// counter, and a second tree with a comparison of its own puts the counters in order.

#include "general.h"

#include <errno.h>
#include <fcntl.h>
#include <io.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

namespace {

constexpr const char *usage = "Usage: wordfreq [-n N] [FILE...]\n"
                              "Counts the words of the files, or of standard input, and prints the most frequent.\n"
                              "A word is a run of the letters A to Z; capitals count as small letters.\n"
                              "\n"
                              "  -n N     print N words (default 10; 0 for all)\n"
                              "  -h, --help\n"
                              "\n"
                              "FILE may be - for standard input. Exit status: 0, 1 if a file could not be read,\n"
                              "2 for a wrong command line.\n";

constexpr size_t chunkSize = 64 * 1024;
constexpr unsigned long long progressStep = 16ull * 1024 * 1024;

[[noreturn]] void fail(int status, const std::string &message)
{
    fprintf(stderr, "wordfreq: %s\n", message.c_str());
    exit(status);
}

struct Counter {
    unsigned long count;
    const char *word;
};

/// More frequent words first, equally frequent ones in byte order.
int compareCounters(const void *searchKey, const void *nodeKey)
{
    auto *left = static_cast<const Counter *>(searchKey);
    auto *right = static_cast<const Counter *>(nodeKey);
    if (left->count != right->count)
        return left->count > right->count ? -1 : 1;
    return strcmp(left->word, right->word);
}

class WordCounter {
public:
    WordCounter() : words_(RbCreate())
    {
        if (words_ == nullptr)
            fail(1, "not enough memory");
    }
    ~WordCounter()
    {
        for (RbNode *leaf = RbFirst(words_); leaf != nullptr; leaf = RbNext(leaf)) {
            free(RbKey(leaf)); // the tree leaves keys and values to their owner
            free(RbVal(leaf));
        }
        RbDestroy(words_);
    }
    WordCounter(const WordCounter &) = delete;
    WordCounter &operator=(const WordCounter &) = delete;

    void readStream(FILE *stream)
    {
        static char chunk[chunkSize];
        size_t length;
        while ((length = fread(chunk, 1, sizeof chunk, stream)) > 0) {
            for (size_t i = 0; i < length; ++i)
                readCharacter(chunk[i]);
            bytes_ += length;
            showProgress();
        }
        endWord();
    }

    /// Prints the first `limit` words, 0 for all, in the manner of `uniq -c`.
    void print(unsigned long limit) const
    {
        RbNode *ranking = RbCreate();
        for (RbNode *leaf = RbFirst(words_); leaf != nullptr; leaf = RbNext(leaf)) {
            void *counter = RbVal(leaf);
            if (ranking == nullptr || !RbInsert_b(RbFindKeyG(ranking, counter, compareCounters), counter, nullptr))
                fail(1, "not enough memory");
        }
        unsigned long printed = 0;
        for (RbNode *leaf = RbFirst(ranking); leaf != nullptr; leaf = RbNext(leaf)) {
            if (limit != 0 && printed++ == limit)
                break;
            auto *counter = static_cast<const Counter *>(RbKey(leaf));
            printf("%7lu %s\n", counter->count, counter->word);
        }
        RbDestroy(ranking);
    }

    void endProgress() const
    {
        if (progressShown_)
            fprintf(stderr, "\r%40s\r", "");
    }

private:
    void readCharacter(char character)
    {
        if (character >= 'A' && character <= 'Z')
            word_ += static_cast<char>(character - 'A' + 'a');
        else if (character >= 'a' && character <= 'z')
            word_ += character;
        else
            endWord();
    }

    void endWord()
    {
        if (word_.empty())
            return;
        int32_t found = 0;
        RbNode *position = RbFindKey_n(words_, word_.c_str(), &found);
        if (found)
            ++static_cast<Counter *>(RbVal(position))->count;
        else
            insertWord(position);
        word_.clear();
    }

    void insertWord(RbNode *position)
    {
        char *text = strdup(word_.c_str());
        auto *counter = static_cast<Counter *>(malloc(sizeof(Counter)));
        if (text == nullptr || counter == nullptr || RbInsert_b(position, text, counter) == nullptr)
            fail(1, "not enough memory");
        *counter = {.count = 1, .word = text};
    }

    void showProgress()
    {
        if (bytes_ < nextProgress_ || !isatty(fileno(stderr)))
            return;
        nextProgress_ = bytes_ + progressStep;
        progressShown_ = true;
        fprintf(stderr, "\r%lu MB read", static_cast<unsigned long>(bytes_ / 1000000));
    }

    RbNode *words_;
    std::string word_;
    unsigned long long bytes_ = 0;
    unsigned long long nextProgress_ = progressStep;
    bool progressShown_ = false;
};

bool readFile(WordCounter &counter, const char *name)
{
    if (strcmp(name, "-") == 0) {
        counter.readStream(stdin);
        return true;
    }
    FILE *file = fopen(name, "rb");
    if (file == nullptr) {
        fprintf(stderr, "wordfreq: cannot read %s: %s\n", name, strerror(errno));
        return false;
    }
    counter.readStream(file);
    bool complete = ferror(file) == 0;
    if (!complete)
        fprintf(stderr, "wordfreq: cannot read all of %s: %s\n", name, strerror(errno));
    fclose(file);
    return complete;
}

unsigned long parseLimit(const char *text)
{
    char *end = nullptr;
    unsigned long limit = text == nullptr ? 0 : strtoul(text, &end, 10);
    if (text == nullptr || *text < '0' || *text > '9' || *end != '\0')
        fail(2, "-n takes a number of words; see wordfreq --help");
    return limit;
}

} // namespace

int main(int argc, char **argv)
{
    unsigned long limit = 10;
    std::vector<const char *> files;
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        if (argument == "-h" || argument == "--help") {
            fputs(usage, stdout);
            return 0;
        }
        if (argument == "-n")
            limit = parseLimit(i + 1 < argc ? argv[++i] : nullptr);
        else if (argument.size() > 1 && argument[0] == '-')
            fail(2, "unknown option " + argument + "; see wordfreq --help");
        else
            files.push_back(argv[i]);
    }
    if (files.empty())
        files.push_back("-");
    // Text is taken and given byte for byte.
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);

    WordCounter counter;
    bool complete = true;
    for (const char *file : files)
        complete = readFile(counter, file) && complete;
    counter.endProgress();
    counter.print(limit);
    return complete ? 0 : 1;
}
