// csrt-track schema: prints the JSON Schemas of what the program writes.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "base/embedded.h"
#include "base/host_error.h"
#include "commands/commands.h"
#include "commands/help_footer.h"

namespace host {

void addSchemaCommand(CLI::App& app, int& status) {
  CLI::App& command = *app.add_subcommand("schema", "Print the JSON Schema of what this program writes");
  command.require_subcommand(1);
  command.footer(helpFooter({"schema records > records.schema.json"}));
  CLI::App& records = *command.add_subcommand("records", "Print the schema of one line that 'track --records' writes");
  records.callback([&status] {
    std::fputs(kRecordsSchema, stdout);
    status = static_cast<int>(ExitCode::Done);
  });
}

}  // namespace host
