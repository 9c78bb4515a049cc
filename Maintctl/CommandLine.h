#pragma once

#include "Maintctl/Failure.h"

#include <string>
#include <variant>
#include <vector>

/// Purpose: from the words of a command line to what is asked for. Nothing is done here.
namespace Maintctl {

/// `--help` or `--version` was asked for: the text that answers it.
struct Information {
   std::string key;   ///< "help" or "version"
   std::string text;  ///< for people
   std::string value; ///< for programs
   bool json = false; ///< asked for as JSON
};

/// A command line that makes no sense.
struct UsageError {
   Failure failure;
   bool json = false;
};

using Parsed = std::variant< Invocation, Information, UsageError >;

/// \param arguments  without the name of the program
Parsed parse( const std::vector< std::string > & arguments, const std::string & version );

} // namespace Maintctl
