// The HTTP server behind `csrt-track serve --http`: the page, its pictures, and the API that scripts use as well.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "web/access.h"
#include "web/web_front.h"

namespace host::web {

/// Where the page is served, and to whom.
struct WebOptions {
  ListenAddress address;
  std::string token;               ///< Asked of everybody; empty: of nobody, which only loopback allows.
  std::vector<std::string> names;  ///< Host names under which it is reached beside its own.
};

/// Threads of its own; all that they touch is `parts`. What is published where: docs/browser.md and openapi.json.
class WebServer {
 public:
  /// Listens from here on. @param parts  must outlive this
  /// @throws HostError (Usage) when it cannot listen there, a token is missing or too short, or the program was built
  ///         without the library
  WebServer(const WebOptions& options, WebParts& parts);
  /// Waiting requests are answered first.
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  /// Where the page is, such as "http://127.0.0.1:8080/".
  const std::string& url() const { return url_; }

 private:
  class Running;
  std::unique_ptr<Running> running_;
  std::string url_;
};

/// The token in a file's first line. A file that is not there is made, for its owner alone, with a drawn token.
/// @param made  set to whether it was made
/// @throws HostError (Usage) naming the file when it cannot be read or made, others may read it, or its token is short
std::string tokenOfFile(const std::string& path, bool& made);

}  // namespace host::web
