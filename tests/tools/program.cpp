#include "program.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace KORV::Tests
{
namespace
{
struct Pipe
{
    Pipe()
    {
        if (pipe2(mEnds, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
    }
    int mEnds[2];
};

[[noreturn]] void execute(const std::string& program, std::vector<std::string>& arguments, const Pipe& out,
                          const Pipe& err)
{
    dup2(out.mEnds[1], STDOUT_FILENO);
    dup2(err.mEnds[1], STDERR_FILENO);
    std::vector<char*> pointers{const_cast<char*>(program.c_str())};
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    execv(program.c_str(), pointers.data());
    _exit(127);
}

bool appendFrom(int file, std::string& text)
{
    char buffer[4096];
    const ssize_t count = read(file, buffer, sizeof buffer);
    if (count > 0)
        text.append(buffer, static_cast<std::size_t>(count));
    return count > 0;
}
} // namespace

TemporaryDirectory::TemporaryDirectory()
{
    std::string name = (std::filesystem::temp_directory_path() / "korvtestXXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no temporary directory");
    mPath = name;
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code error;
    std::filesystem::remove_all(mPath, error);
}

std::string TemporaryDirectory::write(const std::string& name, const std::string& content) const
{
    std::ofstream(file(name), std::ios::binary) << content;
    return file(name);
}

std::vector<std::string> TemporaryDirectory::list() const
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(mPath))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

Outcome run(const std::string& program, std::vector<std::string> arguments, const std::string& signalAfter, int signal)
{
    const Pipe out;
    const Pipe err;
    const pid_t child = fork();
    if (child == 0)
        execute(program, arguments, out, err);
    close(out.mEnds[1]);
    close(err.mEnds[1]);

    Outcome outcome;
    bool signalled = signalAfter.empty();
    pollfd files[] = {{out.mEnds[0], POLLIN, 0}, {err.mEnds[0], POLLIN, 0}};
    std::string* const texts[] = {&outcome.mOutput, &outcome.mErrors};
    while (files[0].fd >= 0 || files[1].fd >= 0)
    {
        poll(files, 2, -1);
        for (int index = 0; index < 2; ++index)
            if (files[index].fd >= 0 && files[index].revents != 0 && !appendFrom(files[index].fd, *texts[index]))
                files[index].fd = -1;
        if (!signalled && outcome.mErrors.find(signalAfter) != std::string::npos)
        {
            kill(child, signal);
            signalled = true;
        }
    }
    int status = 0;
    waitpid(child, &status, 0);
    close(out.mEnds[0]);
    close(err.mEnds[0]);
    outcome.mExitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return outcome;
}

std::string readFile(const std::string& name)
{
    std::ostringstream text;
    text << std::ifstream(name, std::ios::binary).rdbuf();
    return text.str();
}
} // namespace KORV::Tests
