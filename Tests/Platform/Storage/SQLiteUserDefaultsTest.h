#pragma once

#include "Platform/Storage/SQLiteUserDefaults.h"
#include "Platform/SystemClock.h"
#include "Tests/Fakes/RecordingUnifiedLog.h"
#include "Tests/Fakes/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <future>
#include <iterator>
#include <sstream>

/// A store in a temporary folder.
class SQLiteUserDefaultsTest : public testing::Test {
protected:
    using SQLiteUserDefaults = Platform::Storage::SQLiteUserDefaults;
    using Access = SQLiteUserDefaults::Access;

    std::unique_ptr<SQLiteUserDefaults> open(Access access = Access::readWrite)
    {
        return std::make_unique<SQLiteUserDefaults>(file, access, clock, log.adapterLog);
    }
    [[nodiscard]] std::vector<std::string> filesNamedCorrupt() const
    {
        std::istringstream names(shell("ls -d $F.corrupt-* 2> /dev/null"));
        return {std::istream_iterator<std::string>(names), {}};
    }
    void expectNeitherLogNorCopies()
    {
        EXPECT_THAT(log.takeLines(), testing::IsEmpty());
        EXPECT_THAT(filesNamedCorrupt(), testing::IsEmpty());
    }

    /// Runs a shell command and returns its output. $F is the store, $B the name of a backup.
    [[nodiscard]] std::string shell(const std::string& command) const
    {
        const std::string script = "exec 2>&1; F='" + file.string() + "'; B='" +
                                   folder.path("deep/backup").string() + "'; " + command;
        const auto close = [](FILE* pipe) { ::pclose(pipe); };
        const std::unique_ptr<FILE, decltype(close)> pipe(::popen(script.c_str(), "re"), close);
        std::string output;
        std::array<char, 4096> chunk;
        while (const std::size_t count = std::fread(chunk.data(), 1, chunk.size(), pipe.get()))
            output.append(chunk.data(), count);
        return output;
    }

    /// Starts a shell command in another thread and waits until it writes a line to the pipe $B.ready.
    [[nodiscard]] std::future<std::string> start(const std::string& command) const
    {
        EXPECT_EQ(shell("mkfifo $B.ready"), "");
        auto output = std::async(std::launch::async, [=, this] { return shell(command); });
        EXPECT_EQ(shell("cat $B.ready"), "\n");
        return output;
    }

    TemporaryFolder folder;
    std::filesystem::path file = folder.path("deep/state/domain.sqlite");
    Platform::SystemClock clock;
    RecordingUnifiedLog log;
};
