// ostrel: the command-line host program of the Ostrel diagnostics framework.
// See Commands.h for the subcommands and ExitStatus.h for the exit statuses.

#include <CLI/CLI.hpp>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "Commands.h"
#include "ExitStatus.h"
#include "Progress.h"
#include "Session.h"
#include "zel/Exception.h"

using namespace ostrel5::host;

namespace {

// A file given to read must exist, be no directory and open for reading;
// anything else is bad input (exit status 2), found before the engine starts.
CLI::Validator const readableFile(
    [](std::string &path) -> std::string {
      std::error_code error;
      if (std::filesystem::is_directory(path, error))
        return "cannot read " + path + ": it is a directory";
      std::ifstream in(path);
      if (!in)
        return "cannot read " + path + ": " + std::strerror(errno);
      return std::string();
    },
    "", "readable file");

char const *const FOOTER = R"(Exit status:
  0  all went well
  1  a test did not pass
  2  bad input: unknown option, missing or unreadable file, bad cache file
  3  engine trouble: the engine did not start, or an enumeration failed or
     timed out (also a machine description that the engine rejects))";

int fail(ExitStatus status, std::string const &message) {
  std::cout.flush();
  std::cerr << "ostrel: " << message << std::endl;
  return static_cast<int>(status);
}

struct CommonOptions {
  SessionOptions session;
  OutputOptions output;
  bool quiet = false;
};

// The options every subcommand takes. They are declared on the program and
// on each subcommand, bound to the same variables, so that they may stand
// before or after the subcommand and show in every subcommand's help.
void addCommonOptions(CLI::App &app, CommonOptions &options) {
  app.add_option("--machine", options.session.machine,
                 "Serve the simulated machine of this machine-description file")
      ->check(readableFile)
      ->type_name("FILE");
  app.add_option("--base-dir", options.session.baseDir,
                 "Base directory: settings file (ostrel-settings.xml) and logs; made if missing")
      ->type_name("DIR");
  app.add_option("--cache", options.session.loadCache,
                 "Read devices and tests from a cache file written by --save-cache, instead of "
                 "asking the engine")
      ->check(readableFile)
      ->type_name("FILE");
  app.add_option("--save-cache", options.session.saveCache,
                 "After enumerating (devices and tests), write everything to this cache file")
      ->type_name("FILE");
  app.add_flag("--json", options.output.json, "Print one JSON document instead of text");
  app.add_flag("-q,--quiet", options.quiet, "No progress on standard error");
}

} // namespace

int main(int argc, char **argv) {
  CLI::App app{"Lists what the Ostrel diagnostics engine finds on this computer or on a "
               "simulated machine.",
               "ostrel"};
  app.footer(FOOTER);
  app.require_subcommand(1);

  CommonOptions options;
  addCommonOptions(app, options);

  CLI::App *devices = app.add_subcommand("devices", "Print the device tree");
  addCommonOptions(*devices, options);
  devices->add_flag("-p,--properties", options.output.withProperties,
                    "Also list each device's properties");
  CLI::App *tests =
      app.add_subcommand("tests", "Print the modules, and the tests and benchmarks by device");
  addCommonOptions(*tests, options);

  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const &e) {
    // A word that names no subcommand is left over; say so rather than that
    // a subcommand is missing.
    if (app.get_subcommands().empty() && !app.remaining().empty())
      return fail(ExitStatus::BAD_INPUT, "unknown subcommand " + app.remaining().front() +
                                             " (devices, tests); see ostrel --help");
    // Help requests end well; every other parse error is bad input.
    return app.exit(e) == 0 ? 0 : static_cast<int>(ExitStatus::BAD_INPUT);
  }
  SessionOptions const &session = options.session;
  if (!session.loadCache.empty() && (!session.machine.empty() || !session.saveCache.empty()))
    return fail(ExitStatus::BAD_INPUT,
                "--cache reads a saved machine: it excludes --machine and --save-cache");

  Progress progress(std::cerr,
                    options.quiet ? Progress::Style::QUIET : Progress::styleFor(STDERR_FILENO));
  try {
    Session connection(session, progress, std::cerr);
    if (devices->parsed())
      runDevices(connection, options.output, std::cout);
    else if (tests->parsed())
      runTests(connection, options.output, std::cout);
    std::cout.flush();
    if (!std::cout)
      return fail(ExitStatus::BAD_INPUT, "cannot write the output");
    return static_cast<int>(ExitStatus::OK);
  } catch (Failure const &e) {
    return fail(e.status(), e.what());
  } catch (zel::Exception const &e) {
    // A library exception that no step expected: the connection or the
    // engine is in trouble.
    return fail(ExitStatus::ENGINE_TROUBLE, e.toString().str());
  } catch (zel::StructuredException const &e) {
    return fail(ExitStatus::ENGINE_TROUBLE, "internal error: " + e.toString().str());
  } catch (std::exception const &e) {
    return fail(ExitStatus::ENGINE_TROUBLE, e.what());
  }
}
