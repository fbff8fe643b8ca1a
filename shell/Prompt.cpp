// The interactive prompt. readline edits the line through its callback
// interface, fed from a poll loop on the terminal and a wake-up pipe, so that
// whatever else happens meets the typed line in a known state:
// - SIGINT is blocked in every thread and taken by a thread of its own. With
//   a foreground run it stops that run as kill does; at the prompt it asks
//   the loop, through the pipe, to drop the typed line.
// - Lines of background runs are written above the prompt by a line writer
//   that clears the typed line and redraws it, under the output lock that the
//   loop also holds while readline works.
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <readline/history.h>
#include <readline/readline.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "../frame/host/System.h"
#include "../labhost/store/UsageStore.h"
#include "ExitMeanings.h"
#include "Shell.h"

namespace Shell {
namespace {

constexpr char const* PromptText = "labshell> ";
constexpr int HistoryLines = 1000;

// Under the output lock: whether readline shows the prompt and the typed line.
bool editing = false;
// What the line handler got: a line, or nothing at the end of input.
std::optional<std::string> typedLine;
bool lineDone = false;

// Takes SIGINT for the whole process while the prompt runs.
class InterruptCatcher {
public:
    explicit InterruptCatcher(int wakeFd) : wakeFd_(wakeFd) {
        sigemptyset(&set_);
        sigaddset(&set_, SIGINT);
        // Before any run starts: threads inherit the mask of their creator.
        pthread_sigmask(SIG_BLOCK, &set_, nullptr);
        thread_ = std::thread([this] { Catch(); });
    }
    ~InterruptCatcher() {
        stopping_ = true;
        pthread_kill(thread_.native_handle(), SIGINT);
        thread_.join();
    }
    InterruptCatcher(InterruptCatcher const&) = delete;
    InterruptCatcher& operator=(InterruptCatcher const&) = delete;

private:
    void Catch() {
        for (;;) {
            int signal = 0;
            if (sigwait(&set_, &signal) != 0 || stopping_) return;
            int processId = Host::ForegroundRunId();
            if (processId != 0) {
                Host::WriteOutputLine(WString());  // ends the line of the terminal's "^C"
                Host::StopRun(processId);
            } else {
                // A write that fails finds a full pipe: a wake-up is pending already.
                char wake = 'i';
                ssize_t written = write(wakeFd_, &wake, 1);
                (void)written;
            }
        }
    }
    sigset_t set_;
    int wakeFd_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

void OnLine(char* text) {
    typedLine = text != nullptr ? std::optional<std::string>(text) : std::nullopt;
    std::free(text);
    lineDone = true;
    editing = false;
    rl_callback_handler_remove();
}

// Writes a line of some run above the prompt and redraws the typed line.
void WriteAbovePrompt(std::FILE* stream, std::string const& text) {
    if (editing) rl_clear_visible_line();
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
    if (editing) {
        rl_on_new_line();
        rl_redisplay();
    }
}

// Ctrl-C at the prompt, as bash does it: "^C", the line dropped, a new prompt.
void DropTypedLine() {
    if (!editing) return;
    rl_point = rl_end;
    rl_redisplay();
    std::fputs("^C", rl_outstream);
    rl_crlf();
    rl_free_line_state();
    rl_replace_line("", 0);
    using_history();
    rl_on_new_line();
    rl_redisplay();
}

// --- Completion -------------------------------------------------------------

std::vector<std::string> candidates;

bool StartsWith(std::string const& text, std::string const& prefix, bool ignoreCase) {
    if (text.size() < prefix.size()) return false;
    for (size_t i = 0; i < prefix.size(); ++i) {
        char a = text[i], b = prefix[i];
        if (ignoreCase ? FoldAsciiCase(static_cast<unsigned char>(a)) != FoldAsciiCase(static_cast<unsigned char>(b))
                       : a != b) {
            return false;
        }
    }
    return true;
}

// Words that name a command: the first, and the one after help or SHELL [-b].
bool NamesCommand(std::string const& before) {
    std::vector<WString> words = SplitCommandWords(WString::FromUtf8(before));
    if (words.empty()) return true;
    if (words.size() == 1) return words[0].str == L"help" || words[0].str == L"SHELL";
    return words.size() == 2 && words[0].str == L"SHELL" && words[1].str == L"-b";
}

void CollectCandidates(std::string const& prefix, bool commands) {
    candidates.clear();
    if (commands) {
        for (WString const& name : Host::CommandNames()) {
            std::string text = name.ToUtf8();
            if (StartsWith(text, prefix, false)) candidates.push_back(text);
        }
        return;
    }
    WStringArray keys;
    System::usage.Store().AppendAllKeys(keys);
    for (unsigned int i = 0; i < keys.count; ++i) {
        std::string text = keys[i].ToUtf8();
        if (StartsWith(text, prefix, true)) candidates.push_back(text);
    }
}

char* NextCandidate(char const*, int state) {
    static size_t next = 0;
    if (state == 0) next = 0;
    return next < candidates.size() ? strdup(candidates[next++].c_str()) : nullptr;
}

char** Complete(char const* text, int start, int) {
    rl_attempted_completion_over = 1;  // never file names
    bool commands = NamesCommand(std::string(rl_line_buffer, static_cast<size_t>(start)));
    rl_variable_bind("completion-ignore-case", commands ? "off" : "on");  // keys are found without regard to case
    CollectCandidates(text, commands);
    return rl_completion_matches(text, NextCandidate);
}

// --- The loop ---------------------------------------------------------------

// One typed line, or nothing at the end of input.
std::optional<std::string> ReadTypedLine(int wakeFd) {
    char drained[16];
    while (read(wakeFd, drained, sizeof drained) > 0) {
        // Ctrl-C while no run and no prompt was there (a builtin's wait) is spent.
    }
    lineDone = false;
    Host::WithOutputLock([] {
        rl_callback_handler_install(PromptText, OnLine);
        editing = true;
    });
    while (!lineDone) {
        pollfd sources[2] = {{STDIN_FILENO, POLLIN, 0}, {wakeFd, POLLIN, 0}};
        if (poll(sources, 2, -1) < 0) continue;  // EINTR
        if (sources[1].revents & POLLIN) {
            while (read(wakeFd, drained, sizeof drained) > 0) {
            }
            Host::WithOutputLock(DropTypedLine);
        }
        if (sources[0].revents & (POLLIN | POLLHUP | POLLERR)) Host::WithOutputLock(rl_callback_read_char);
    }
    return typedLine;
}

std::string HistoryPath() { return System::GetDataDirectory().ToUtf8() + "/history"; }

void Remember(std::string const& line) {
    if (WString::FromUtf8(line).Trim().IsEmpty()) return;
    HIST_ENTRY* last = history_get(history_base + history_length - 1);
    if (last != nullptr && line == last->line) return;
    add_history(line.c_str());
    write_history(HistoryPath().c_str());
}

// The command whose exit number a line gives: SHELL hands on the one it ran.
WString CommandOf(WString const& line) {
    std::vector<WString> words = SplitCommandWords(line);
    size_t index = 0;
    while (index + 1 < words.size() && words[index].str == L"SHELL") ++index;
    return index < words.size() ? words[index] : WString();
}

void ExplainFailure(WString const& line, ExitCode const& code) {
    // The unknown name has had its line; exit's number is the shell's status.
    if (code.number == 0 || ExitRequested()) return;
    if (code.kind == 1 && code.number == HostExit::UnknownCommand) return;
    WString name = CommandOf(line);
    std::string meaning = ExitMeanings::Describe(name.ToUtf8(), code);
    WString text = WString::Format(L"** %s: exit %u", name.c_str(), static_cast<unsigned int>(code.number));
    if (!meaning.empty()) text.str += L" - " + WString::FromUtf8(meaning).str;
    Host::WriteErrorLine(text);
}

// False the first time the shell would end with changes left unsaved.
bool MayLeave(bool& warned) {
    unsigned int unsaved = System::usage.Store().UnsavedItemCount();
    if (unsaved == 0 || warned) return true;
    warned = true;
    Host::WriteErrorLine(WString::Format(
        L"labshell: %u usage change(s) not saved: UsageLog -b saves them; exit or Ctrl-D again leaves without",
        unsaved));
    return false;
}

class WakePipe {
public:
    WakePipe() {
        if (pipe(fds_) != 0) fds_[0] = fds_[1] = -1;
        for (int fd : fds_) {
            if (fd >= 0) fcntl(fd, F_SETFL, O_NONBLOCK);
        }
    }
    ~WakePipe() {
        for (int fd : fds_) {
            if (fd >= 0) close(fd);
        }
    }
    WakePipe(WakePipe const&) = delete;
    WakePipe& operator=(WakePipe const&) = delete;
    int ReadEnd() const { return fds_[0]; }
    int WriteEnd() const { return fds_[1]; }

private:
    int fds_[2];
};

}  // namespace

void RunPrompt(bool echo) {
    WakePipe wake;
    InterruptCatcher interrupts(wake.WriteEnd());
    rl_catch_signals = 0;
    rl_attempted_completion_function = Complete;
    stifle_history(HistoryLines);
    read_history(HistoryPath().c_str());
    Host::SetLineWriter(WriteAbovePrompt);
    Host::EchoErrorLog(true);
    Host::WriteOutputLine(WString(L"labshell: data folder " + System::GetDataDirectory().str +
                                  L". help lists the commands, NAME -? explains one, exit leaves."));

    bool warned = false;
    for (;;) {
        std::optional<std::string> text = ReadTypedLine(wake.ReadEnd());
        if (!text) {
            std::fputs("\n", stdout);
            if (MayLeave(warned)) break;
            continue;
        }
        Remember(*text);
        WString line = WString::FromUtf8(*text);
        ExitCode code = RunShellLine(line, echo);
        ExplainFailure(line, code);
        if (!ExitRequested()) {
            if (!line.Trim().IsEmpty()) warned = false;
            continue;
        }
        if (MayLeave(warned)) break;
        WithdrawExit();
    }
    Host::EchoErrorLog(false);
    Host::SetLineWriter(nullptr);
    history_truncate_file(HistoryPath().c_str(), HistoryLines);
}

}  // namespace Shell
