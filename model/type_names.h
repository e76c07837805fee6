#pragma once
// Type-name tables and the event-key/function-name rules.

#include <string>
#include <utility>
#include <vector>

#include "model/keln_types.h"

namespace ruvo {

// Ordered (value, name) pairs; lookups stop at the first match, which decides the printed name.
RUVO_API const std::vector<std::pair<int, std::string>>& typeNameTable();
// Ordered (value, record flag) pairs: the record of which types are records.
RUVO_API const std::vector<std::pair<int, int>>& typeFlagTable();

// First-match name of a type value, "" when the table has none.
RUVO_API std::string typeNameOf(int value);
// Value of a type name; an unknown name silently becomes void.
RUVO_API KelnVarType typeValueOf(const std::string& name);

}  // namespace ruvo

RUVO_API std::string getValueToString(KelnVarType type);

RUVO_API std::string keyToFunName(const std::string& key, int subType);
RUVO_API std::string funNameToKey(const std::string& name, int subType);

RUVO_API void addKelnFunctionDepend(_KelnFunction* function, const char* name);
RUVO_API void addKelnFunctionParent(_KelnFunction* function, const char* name);
RUVO_API void removeKelnFunctionDepend(_KelnFunction* function, const char* name);
RUVO_API void removeKelnFunctionParent(_KelnFunction* function, const char* name);
