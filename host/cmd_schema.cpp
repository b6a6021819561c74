// csrt-track schema: prints the JSON Schemas of what the program writes.
#include <CLI/CLI.hpp>
#include <cstdio>

#include "commands.h"
#include "embedded.h"
#include "help_footer.h"
#include "host_error.h"

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
