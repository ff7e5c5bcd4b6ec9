// The headers for C++ of what processes share, and of the system's own.
#include "tests/ipc/processes.h"

#include "general/general.hpp"

#include <gmock/gmock.h>

#include <atomic>
#include <list>
#include <map>
#include <thread>
#include <vector>

namespace {

using namespace ipc_test;
using testing::ElementsAre;

constexpr uint32_t longest = 5000;

general::Connection connected(const char *name)
{
    general::Connection connection(name);
    for (int i = 0; i < 600 && !connection; ++i, connection = general::Connection(name))
        Sleep(100);
    return connection;
}

constexpr int calm = 66; ///< connections, more than one wait of the system's holds

/// A child process sends a record on each of its connections and waits to be killed.
const bool isChild = [] {
    bool is = strstr(GetCommandLineA(), "--role speak") != nullptr;
    if (is) {
        std::vector<general::Connection> connections(calm);
        for (general::Connection &connection : connections)
            (connection = connected("face")).sendRecord("x", patience).ignore();
        Sleep(INFINITE);
    }
    return is;
}();

struct Thrown {};

struct Client : general::ServedClient {
    using ServedClient::ServedClient;
    general::RecordReader<longest> input;
};

struct Served {
    std::list<Client> clients;
    std::map<std::string, int> records; ///< by their first letter, how many
    general::Server<std::list<Client>> server;

    explicit Served(uint32_t silence = patience) : server("face", clients, {1000, 200, silence}) {}
    general::ShmQueueEnd::Result operator()(Client &client)
    {
        return client.input.receive(client.connection, [this](std::string_view record) {
            ++records[std::string(record.substr(0, 1))];
            if (record == "throw")
                throw Thrown();
        });
    }
    /// Serves until something holds.
    template<typename Condition>
    bool until(Condition condition)
    {
        for (DWORD begin = GetTickCount(); !condition() && GetTickCount() - begin < patience;)
            if (!server.serve(*this))
                return condition();
        return condition();
    }
};

TEST(CppServer, ServesAllAlike)
{
    Served served;
    Child child("speak");
    std::vector<std::thread> threads;
    for (char letter : {'a', 'b', 'c'}) // busy ones, whose records come in bits of their rings' 1000 bytes
        threads.emplace_back([letter] {
            auto connection = connected("face");
            for (uint32_t i = 0; i <= 50; ++i)
                EXPECT_TRUE(connection.sendRecord(std::string(std::max(i * 100, 1U), letter), patience));
        });
    const std::map<std::string, int> all = {{"a", 51}, {"b", 51}, {"c", 51}, {"x", calm}};
    EXPECT_TRUE(served.until([&] { return served.records == all && served.clients.size() == calm; }));
    for (std::thread &thread : threads)
        thread.join();
    served.server.stopListening();
    child.kill();
    EXPECT_TRUE(served.until([&] { return served.clients.empty(); }));
    EXPECT_FALSE(served.server || served.server.serve(served));
}

TEST(CppServer, DropsWhoIsNoGood)
{
    Served served(2000);
    general::Connection good, bad[3]; // one throws, one announces too much, one is silent
    std::atomic<bool> isOver(false);
    std::thread thread([&] {
        good = connected("face");
        EXPECT_TRUE(good.sendRecord("good", patience));
        for (general::Connection &connection : bad)
            connection = connected("face");
        EXPECT_TRUE(bad[0].sendRecord("throw", patience));
        EXPECT_EQ(bad[1].sendRecord(std::string(longest + 1, 'x'), patience), SHMQUEUE_CLOSED);
        isOver = true;
    });
    auto isDone = [&] { return isOver && served.clients.size() == 1; };
    EXPECT_THROW(served.until(isDone), Thrown);
    EXPECT_TRUE(served.until(isDone));
    thread.join();
    EXPECT_THAT(served.records, ElementsAre(testing::Pair("g", 1), testing::Pair("t", 1)));
}

TEST(CppConnection, SendsAllOrSaysWhyNot)
{
    char buffer[200] = {};
    general::Listener listener("face");
    general::Connection client;
    std::thread thread([&] { client = connected("face"); });
    while (!listener.hasRequest())
        EXPECT_TRUE(listener.select(SHMQUEUE_SELECT_READ, patience));
    general::Connection server = listener.accept(1, 100);
    thread.join();
    EXPECT_EQ(client.send(buffer, 101, 50), SHMQUEUE_FULL);
    EXPECT_EQ(server.read(buffer, 200).value_or(0), 100U);
    EXPECT_EQ(server.read(buffer, 200).result(), SHMQUEUE_EMPTY);
    EXPECT_EQ(client.write(buffer, 200).value_or(0), 100U);
    EXPECT_EQ(server.select(3, 0).value_or(0), 3U);
    EXPECT_TRUE(server.reset());
    EXPECT_EQ(client.send(buffer, 1, 50), SHMQUEUE_CLOSED);
    EXPECT_EQ(server.send(buffer, 1, 50), SHMQUEUE_BAD_HANDLE);
    EXPECT_FALSE(general::Connection("nobody"));
}

TEST(CppPerf, PublishesUntilItsEnd)
{
    auto view = [] { return OpenFileMappingA(FILE_MAP_READ, FALSE, "face"); };
    {
        general::PublishedCounters counters("face", {general::counter(5), general::counter(6, 100)}), owner;
        owner = std::move(counters);
        owner.set(5, 7);
        owner.add(6, 1);
        const auto *words = static_cast<uint32_t *>(MapViewOfFile(view(), FILE_MAP_READ, 0, 0, 0));
        EXPECT_THAT(std::vector<uint32_t>(words + 1, words + 8), ElementsAre(2, 5, 12, 7, 6, 12, 101));
        EXPECT_FALSE(general::PublishedCounters(nullptr, {general::counter(5)}));
        owner.reset();
        EXPECT_EQ(words[0], 0U);
    }
    EXPECT_EQ(PerfShutdown(), 0);
}

TEST(CppSystem, DescribesFailures)
{
    EXPECT_EQ(general::errorText(ERROR_FILE_NOT_FOUND).find_first_of("\r\n"), std::string_view::npos);
    EXPECT_EQ((*general::symbol<int(__cdecl *)(int)>("msvcrt", "abs"))(-5), 5);
    EXPECT_EQ(general::symbol<int (*)()>("msvcrt", "no such").result(), DYNLD_NO_SYMBOL);

    EXCEPTION_RECORD record{};
    CONTEXT context{};
    EXCEPTION_POINTERS exception = {&record, &context};
    record.ExceptionCode = EXCEPTION_INT_DIVIDE_BY_ZERO;
    context.Eip = reinterpret_cast<DWORD>(&connected);
    context.Ebp = reinterpret_cast<DWORD>(__builtin_frame_address(0));
    LPTOP_LEVEL_EXCEPTION_FILTER filter = general::traceUnhandled;
    testing::internal::CaptureStderr();
    EXPECT_EQ(filter(&exception), EXCEPTION_CONTINUE_SEARCH);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::AllOf(testing::StartsWith("exception c0000094\n"),
                               testing::HasSubstr("  cpp_tests.exe  connected("), testing::HasSubstr(")\n  00")));
}

} // namespace
