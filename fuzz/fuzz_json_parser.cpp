// Any bytes as a JSON text: no crash, no leak, one answer, and either a value or an error.
#include <cstddef>
#include <cstdint>

#include "fuzz_check.h"
#include "sw_json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const SwString json(std::string(reinterpret_cast<const char*>(data), size));
  SwString error;
  const SwJsonValue document = SwJsonDocument::parseDocument(json, SwString(), error);
  const bool null = document.kind() == SwJsonValue::Kind::Null;
  fuzzCheck(error.empty() || null, "an error comes with a null value");

  SwString valueError;
  std::size_t pos = 0;
  const SwJsonValue value = SwJsonDocument::parseJson(json, pos, SwString(), valueError);
  fuzzCheck(pos <= json.size(), "the place is in the text");
  fuzzCheck(!error.empty() || valueError.empty(), "what reads as a document reads as a value");
  fuzzCheck(!error.empty() || value.kind() == document.kind(), "both read the same");

  SwJsonArray copies;
  copies.append(document);
  fuzzCheck(copies[0].kind() == document.kind(), "a copy is of the same kind");
  return 0;
}
