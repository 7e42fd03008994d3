#include <exception>
#include <halvtiv/error_info.hpp>
#include <iostream>
#include <new>

#include "command_error.hpp"
#include "copy/copy_command.hpp"
#include "defs_command.hpp"
#include "options.hpp"
#include "output.hpp"
#include "platform/streams.hpp"
#include "run_command.hpp"

namespace {

using halvtiv::cli::ExitStatus;

ExitStatus RunCommand(int argumentCount, char** arguments) {
    using namespace halvtiv::cli;
    const ParsedCommandLine parsed = ParseCommandLine(argumentCount, arguments);
    if (parsed.text) {
        Output output(std::nullopt);
        output.Write(*parsed.text);
        output.Finish();
        return ExitStatus::Done;
    }
    switch (parsed.options.command) {
        case Command::Run:
            return RunRequestFile(parsed.options);
        case Command::Call:
            return RunCall(parsed.options);
        case Command::Export:
            return RunExport(parsed.options);
        case Command::Copy:
            return RunCopy(parsed.options);
        case Command::DefsList:
            return ListDefinitions(parsed.options);
        case Command::DefsCheck:
            return CheckDefinitions(parsed.options);
    }
    return ExitStatus::NotRun;
}

ExitStatus Fail(ExitStatus status, std::string_view message) {
    std::cerr << message << (message.ends_with('\n') ? "" : "\n");
    return status;
}

ExitStatus RunGuarded(int argumentCount, char** arguments) {
    try {
        return RunCommand(argumentCount, arguments);
    } catch (const halvtiv::cli::CommandError& error) {
        return Fail(error.Status(), error.what());
    } catch (const halvtiv::cli::BrokenPipe&) {
        return ExitStatus::Failed;
    } catch (const halvtiv::ErrorInfo& error) {
        // A running engine lets nothing out: this came from reading files before it ran.
        return Fail(ExitStatus::NotRun, error.Description);
    } catch (const std::bad_alloc&) {
        return Fail(ExitStatus::Failed, "Out of memory.");
    } catch (const std::exception& error) {
        return Fail(ExitStatus::Failed, error.what());
    }
}

}  // namespace

int main(int argumentCount, char** arguments) {
    halvtiv::platform::PrepareStandardStreams();
    return static_cast<int>(RunGuarded(argumentCount, arguments));
}
