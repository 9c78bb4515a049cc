#pragma once

#include "Config/Configuration.h"
#include "Config/Error.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Config {

class Files;

/// Where the agent's configuration is unless somebody says otherwise.
inline constexpr char defaultFile[] = "/etc/maintd/maintd.yaml";

/// A configuration, or everything that is wrong with it. Exactly one of the two is there.
struct Result {
   std::optional< Configuration > configuration;
   std::vector< Error > errors; ///< by file in the order read, then by place
   /// In the same order, of an accepted configuration: what it says without any effect.
   std::vector< Error > warnings = {};

   explicit operator bool() const { return configuration.has_value(); }
};

/// Reads the file `path` and its drop-ins: the files `maintd.d/*.yaml` beside it, hidden ones left out, in the order
/// of the bytes of their names. They become one configuration:
/// - maps are merged, on every level: a drop-in can add a unit, or one more key to a profile
/// - anything else that stands under the same keys in two files is a duplicate key, which the error shows with both
///   places; nothing is ever overridden, so the order of the files decides nothing but the order of errors
/// - `version` is a property of each file: required in the main one, checked in every one
/// - a drop-in may be empty
/// - no file is larger than maxFileSize
///
/// All errors are reported in one run. A file that is not YAML is reported with the first place where it is not; what
/// depends on its content (names that are not defined, keys that are missing) is not looked at then.
/// \param path  of the main file, as it shall be shown in errors
Result load( const std::string & path, Files & files );
Result load( const std::string & path ); ///< from the file system of this machine

/// The same for one file whose text is at hand, of any size.
/// \param fileName  as it shall be shown in errors
Result parse( std::string_view text, const std::string & fileName );

} // namespace Config
