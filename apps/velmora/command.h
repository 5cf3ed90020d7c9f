// The subcommands of the velmora tool. Each lives in a file of its own and registers itself with
// a static CommandRegistration, so adding a subcommand means adding one file.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

namespace velmora::tool {

class Command {
 public:
  virtual ~Command() = default;
  // The subcommand's name and its one-line description in the usage text.
  virtual const char* name() const = 0;
  virtual const char* summary() const = 0;
  // Declares the subcommand's options and arguments on its own parser.
  virtual void configure(CLI::App& command) = 0;
  // Runs it after a successful parse; returns the process exit code. Failures may throw
  // std::exception: the tool prints the message and exits with 1.
  virtual int run() = 0;
};

// Every registered subcommand, in registration order.
std::vector<std::unique_ptr<Command>>& registeredCommands();

template <typename CommandType>
struct CommandRegistration {
  CommandRegistration() { registeredCommands().push_back(std::make_unique<CommandType>()); }
};

}  // namespace velmora::tool
