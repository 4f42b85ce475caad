#!/usr/bin/env bash
# tools/check-includes accepts includes and imports of lower layers, and reports each kind of wrong include or import.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
check=$root/tools/check-includes
# shellcheck source=tests/tools/expect_findings.sh
source "$root/tests/tools/expect_findings.sh"

finds 'agent: includes of lower layers are accepted' '' \
  agent/shell/a.cpp '#include "client/dispatch.h"' agent/client/dispatch.h '#include "input/b.h"' \
  agent/input/b.h '#include "net/c.h"\n#include <string>' agent/net/c.h '#include "wire/json.h"\n#include "platform/d.h"' \
  agent/wire/json.h '#include "wire/messages.def"' agent/wire/messages.def '' agent/platform/d.h ''
finds 'agent: the wire must not use the platform' 'agent/wire/json.h:2' \
  agent/wire/json.h '\n#include "platform/a.h"' agent/platform/a.h ''
finds 'agent: the platform must not use the wire' 'agent/platform/a.h:1' \
  agent/platform/a.h '#include "wire/json.h"' agent/wire/json.h ''
finds 'agent: the network must not use a feature' 'agent/net must not use agent/input' \
  agent/net/a.h '#include "input/b.h"' agent/input/b.h ''
finds 'agent: a feature must not use the client' 'agent/input/b.cpp:1' \
  agent/input/b.cpp '#include "client/agent_client.h"' agent/client/agent_client.h ''
finds 'agent: the client must not use the shell' 'agent/client/a_win32.cpp:1' \
  agent/client/a_win32.cpp '#include "shell/a.h"' agent/shell/a.h ''
finds 'agent: an include through the parent folder is checked too' 'agent/net must not use agent/input' \
  agent/net/a.h '#include "../input/b.h"' agent/input/b.h ''
finds 'agent: the relay must not be used' 'agent/net must not use relay/base' \
  agent/net/a.h '#include "relay/base/log.h"' relay/base/log.h ''
finds 'agent: test code must not be used' 'agent/ must not use tests/fakes/fakes.h' \
  agent/net/a.cpp '#include "tests/fakes/fakes.h"' tests/fakes/fakes.h ''
finds 'agent: native code must not include a Windows header' 'agent/input/b.h:1' \
  agent/input/a.cpp '#include "input/b.h"' agent/input/b.h '#include <windows.h>'
finds 'agent: Windows code may include a Windows header' '' \
  agent/input/a_win32.cpp '#include "input/b.h"' agent/input/b.h '#include <windows.h>'
finds 'relay: includes of lower layers are accepted' '' \
  relay/program/main.cpp '#include "relay/server.h"' relay/server.h '#include "relay/http/routes.h"' \
  relay/http/routes.h '#include "relay/links/agent_link.h"' relay/links/agent_link.h '#include "relay/session/router.h"' \
  relay/session/router.h '#include "relay/net/a.h"' relay/net/a.h '#include "relay/wire/envelope.h"' \
  relay/wire/envelope.h '#include "wire/messages.h"' agent/wire/messages.h ''
finds 'relay: a session must not use a link' 'relay/session must not use relay/links' \
  relay/session/a.cpp '#include "relay/links/b.h"' relay/links/b.h ''
finds 'relay: storage must not use the server' 'relay/storage must not use relay/server' \
  relay/storage/a.cpp '#include "relay/server.h"' relay/server.h ''
finds 'relay: the wire is the only part of the agent that may be used' 'relay/net must not use agent/net' \
  relay/net/a.cpp '#include "net/socket.h"' agent/net/socket.h ''
finds 'relay: native code must not include a Windows header' 'relay/base/a.h:1' \
  relay/base/b.cpp '#include "relay/base/a.h"' relay/base/a.h '#include <winsock2.h>'
finds 'console: imports of lower layers are accepted' '' \
  console/app.js "import { a } from './session/a.js';" console/session/a.js "import {\n  b,\n} from '../files/b.js';" \
  console/files/b.js "/** @type {import('../input/c.js').C} */\nlet c;" console/input/c.js "export * from '../base/d.js';" \
  console/base/d.js "const words = 'a text from \"elsewhere\"';"
finds 'console: an import must not refer to a higher layer' 'console/link/a.js:1: console/link must not use console/session' \
  console/link/a.js "import { b } from '../session/b.js';" console/session/b.js ''
finds 'console: an import over several lines must not refer to a higher layer' 'console/link must not use console/session' \
  console/link/a.js "import {\n  b,\n} from\n  '../session/b.js';" console/session/b.js ''
finds 'console: an import for its effects must not refer to a higher layer' 'console/link must not use console/session' \
  console/link/a.js "import '../session/b.js';" console/session/b.js ''
finds 'console: a dynamic import must not refer to a higher layer' 'console/link must not use console/session' \
  console/link/a.js "await import('../session/b.js');" console/session/b.js ''
finds 'console: a JSDoc import must not refer to a higher layer' 'console/files/a.js:2: console/files must not use console/session' \
  console/files/a.js "\n/** @param {import('../session/b.js').B} b */" console/session/b.js ''
finds 'console: a re-export must not come from a higher layer' 'console/base must not use console/app' \
  console/base/a.js "export { b } from '../app.js';" console/app.js ''
finds 'console: a JSDoc import counts in a cycle' 'console/files/a.js -> console/files/b.js -> console/files/a.js' \
  console/files/a.js "import { b } from './b.js';" console/files/b.js "/** @type {import('./a.js').A} */"
finds 'console: an imported file must exist' 'there is no file ./b.js' console/files/a.js "import { b } from './b.js';"
finds 'files must not include each other' 'agent/input/a.h -> agent/input/b.h -> agent/input/a.h' \
  agent/input/a.h '#include "input/b.h"' agent/input/b.h '#include "input/a.h"'
finds 'folders of one layer may use each other in one direction' '' \
  relay/links/a.cpp '#include "relay/http/b.h"' relay/http/b.h ''
finds 'folders of one layer must not use each other in both directions' 'a cycle of folders in one layer: console/clipboard -> console/files' \
  console/clipboard/a.js "import '../files/b.js';" console/files/b.js '' console/files/c.js "import '../clipboard/d.js';" \
  console/clipboard/d.js ''
finds 'each folder is in a layer' 'relay/attic is not in a layer' relay/attic/a.h ''

report
