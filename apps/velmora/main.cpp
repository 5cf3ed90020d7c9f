// velmora: the command-line face of the library. Usage: velmora <subcommand> [options]; see
// velmora --help and velmora <subcommand> --help.
#include <algorithm>
#include <cstring>
#include <exception>
#include <iostream>

#include "velmora/command.h"

namespace velmora::tool {

std::vector<std::unique_ptr<Command>>& registeredCommands() {
  static std::vector<std::unique_ptr<Command>> commands;
  return commands;
}

}  // namespace velmora::tool

int main(int argc, char** argv) {
  using velmora::tool::Command;
  auto& commands = velmora::tool::registeredCommands();
  std::sort(commands.begin(), commands.end(),
            [](const auto& a, const auto& b) { return std::strcmp(a->name(), b->name()) < 0; });

  CLI::App app("Panoramas from the two-camera rotating rig, and a simulator of the rig.",
               "velmora");
  app.require_subcommand(1);
  for (auto& command : commands) {
    command->configure(*app.add_subcommand(command->name(), command->summary()));
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  }

  for (auto& command : commands) {
    if (!app.got_subcommand(command->name())) continue;
    try {
      return command->run();
    } catch (const std::exception& error) {
      std::cerr << "velmora " << command->name() << ": " << error.what() << std::endl;
      return 1;
    }
  }
  return 1;
}
