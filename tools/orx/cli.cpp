#include "cli.hpp"

#include <cstdio>
#include <string>

#include "orx/version.h"
#include "tool.hpp"

namespace orx::tool {
namespace {

std::vector<CLI::App *> commands(CLI::App &app) {
  return app.get_subcommands([](CLI::App *) { return true; });
}

std::string command_names(CLI::App &app) {
  std::string names;
  for (CLI::App *c : commands(app)) names += (names.empty() ? "" : ", ") + c->get_name();
  return names;
}

CLI::App *find_command(CLI::App &app, const std::string &name) {
  for (CLI::App *c : commands(app))
    if (c->check_name(name)) return c;
  return nullptr;
}

int unknown_command(CLI::App &app, const std::string &name) {
  std::fprintf(stderr, "orx: unknown command \"%s\"; the commands are %s (see \"orx help\")\n",
               name.c_str(), command_names(app).c_str());
  return kFailed;
}

}  // namespace

int parse_command_line(CLI::App &app, int argc, char **argv) {
  app.set_version_flag("--version", [] {
    return std::string("orx ") + ORX_TOOL_VERSION + " (liborx " + ORX_version(nullptr, nullptr, nullptr) +
           ", plug-in protocol " + ORX_plugin_protocol() + ")";
  });
  std::string topic;
  CLI::App *help = app.add_subcommand("help", "Describe the tool, or one command: orx help COMMAND");
  help->add_option("command", topic, "A command");

  // The global options take no value, so the first word that is not an
  // option names the command.
  for (int i = 1; i < argc; ++i) {
    if (argv[i][0] == '-') continue;
    if (find_command(app, argv[i]) == nullptr) return unknown_command(app, argv[i]);
    break;
  }
  try {
    std::vector<char *> args(argv, argv + argc);
    args[0] = const_cast<char *>("orx");  // usage lines name the tool, not where it lies
    app.parse(argc, args.data());
  } catch (const CLI::CallForVersion &e) {
    std::printf("%s\n", e.what());
    return kOk;
  } catch (const CLI::Success &e) {  // --help
    return app.exit(e);
  } catch (const CLI::ParseError &e) {
    std::string where;
    for (CLI::App *c = &app; !c->get_subcommands().empty(); c = c->get_subcommands().front())
      where += " " + c->get_subcommands().front()->get_name();
    std::fprintf(stderr, "orx:%s%s %s (see \"orx help%s\")\n", where.c_str(), where.empty() ? "" : ":",
                 e.what(), where.c_str());
    return kFailed;
  }
  if (!*help) return -1;
  if (topic.empty()) {
    // app.help() would describe the selected command, which is help itself.
    std::printf("%s", app.get_formatter()->make_help(&app, "orx", CLI::AppFormatMode::Normal).c_str());
    return kOk;
  }
  CLI::App *command = find_command(app, topic);
  if (command == nullptr) return unknown_command(app, topic);
  std::printf("%s", command->help("orx").c_str());
  return kOk;
}

}  // namespace orx::tool
