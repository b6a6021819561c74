#include "record_schema.h"

#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validator.hpp>

#include "base/embedded.h"

namespace host_test {
namespace {

const valijson::Schema& recordSchema() {
  static const valijson::Schema* const schema = [] {
    static const nlohmann::json text = nlohmann::json::parse(host::kRecordsSchema);
    auto* parsed = new valijson::Schema;
    valijson::SchemaParser(valijson::SchemaParser::kDraft7)
        .populateSchema(valijson::adapters::NlohmannJsonAdapter(text), *parsed);
    return parsed;
  }();
  return *schema;
}

}  // namespace

std::string recordFault(const nlohmann::json& record) {
  valijson::ValidationResults results;
  valijson::Validator validator;
  if (validator.validate(recordSchema(), valijson::adapters::NlohmannJsonAdapter(record), &results)) return {};
  std::string fault = "refused";
  valijson::ValidationResults::Error error;
  while (results.popError(error)) {
    fault += "; ";
    for (const std::string& part : error.context) fault += part;
    fault += ": " + error.description;
  }
  return fault;
}

}  // namespace host_test
