// CommandBase: the defaults of its virtual operations and the services that
// a command asks of the host. Every wait here belongs to the calling run and
// ends with the stop code when that run is stopped. Run, which needs the
// command table, is the host's (labhost/Host.cpp).
#include "CommandBase.h"

#include "Runs.h"

Object::~Object() = default;

CommandBase::CommandBase() : commandFlags(0), eventContext(0), hostRun(nullptr) {}

CommandBase::~CommandBase() = default;

unsigned int CommandBase::GetCommandType() { return 0; }

void CommandBase::OnStart(ArgumentList&, Options&) {}

void CommandBase::OnExit(ExitCode&) {}

bool CommandBase::HandleStandardOptions(Options&) { return false; }

void CommandBase::OnAbort(bool& handled) { handled = false; }

void CommandBase::OnPause(bool, PauseArgument&) {}

void CommandBase::SignalHandler(CommandReference const&, unsigned int, Object*) {}

void CommandBase::SendSignalGoAheadIfRequested() { Runs::GiveGoAhead(hostRun); }

// labshell has no time control: nobody ever asks for a control point.
void CommandBase::WaitForTimeControlPointIfRequested() {}

void CommandBase::BookResource(WString const& name) { Runs::Book(hostRun, name, std::nullopt); }

bool CommandBase::TryBookResource(WString const& name, unsigned int waitMs) {
    return Runs::Book(hostRun, name, Runs::DeadlineIn(waitMs));
}

void CommandBase::FreeBookedResource(WString const& name) { Runs::Free(hostRun, name); }

void CommandBase::SleepAbortable(unsigned int milliseconds) { SleepWithoutSimulationMode(milliseconds); }

void CommandBase::SleepWithoutSimulationMode(unsigned int milliseconds) { Runs::Sleep(milliseconds); }

// Recorded only: a real-time priority for a run's thread could starve the
// rest of a desktop machine, and the runs here do not need it.
void CommandBase::SetThreadPriority(int priority) {
    if (hostRun == nullptr) return;
    Runs::Locked([this, priority] { hostRun->priority = priority; });
}

void CommandBase::MakeMeImmuneAgainstKillAll() {
    if (hostRun == nullptr) return;
    Runs::Locked([this] { hostRun->immune = true; });
}

int CommandBase::GetProcessId() { return hostRun != nullptr ? hostRun->processId : 0; }

// Signal 3 stops the target as kill does, without waiting for its end; the
// host knows no other signal.
void CommandBase::SendSignal(int processId, unsigned int signal, Object*) const {
    if (signal != 3) return;
    Runs::StopWhere([processId](RunState const& run) { return run.processId == processId; }, false);
}
