// The one header a host includes. Nothing outside the headers it includes is
// the library's interface. Plug-in writers include qzvault/plugin.h instead.
#ifndef QZVAULT_QZVAULT_H_
#define QZVAULT_QZVAULT_H_

#include "qzbase/config.h"
#include "qzbase/date.h"
#include "qzbase/events.h"
#include "qzbase/log.h"
#include "qzbase/path.h"
#include "qzbase/string.h"
#include "qzvault/attribute.h"
#include "qzvault/check.h"
#include "qzvault/entry.h"
#include "qzvault/folder.h"
#include "qzvault/impact.h"
#include "qzvault/item_list.h"
#include "qzvault/lineage.h"
#include "qzvault/object.h"
#include "qzvault/resource.h"
#include "qzvault/vault.h"

#endif  // QZVAULT_QZVAULT_H_
