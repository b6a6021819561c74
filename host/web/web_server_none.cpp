// The server where its library is not there.
#include "base/host_error.h"
#include "web/web_server.h"

namespace host::web {

class WebServer::Running {};

WebServer::WebServer(const WebOptions& /*options*/, WebParts& /*parts*/) {
  throw HostError(ExitCode::Usage, "--http: this program was built without the library for it (libcpp-httplib-dev)");
}

WebServer::~WebServer() = default;

}  // namespace host::web
