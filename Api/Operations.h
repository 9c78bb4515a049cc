#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Purpose: what the control API answers about operations, as plain values for those who ask.
namespace Api {

/// What has become of a request for an operation of a unit.
struct Accepted {
   std::string unit;
   std::uint64_t generation = 0;
   std::string state;
   std::optional< std::uint64_t >
      operation;          ///< that does it, has done it or does it already; nothing: none is known
   bool changed = true;   ///< by the request
   bool repeated = false; ///< its key was used for the same request before
};

/// Times are seconds since 1970. Nothing stands for null: unknown, or it has not happened.
struct Operation {
   std::uint64_t id = 0;
   std::string kind;                       ///< enter, exit, release or reload
   std::string unit;                       ///< empty: it is of none
   std::optional< std::string > interface; ///< of a release
   std::string state;                      ///< running, done, failed or cancelled
   std::optional< std::string > by, reason, requestKey;
   std::map< std::string, std::string > with; ///< noted down with it
   std::optional< double > begun, ended;
   std::optional< std::uint64_t > endedBy; ///< the operation that took its place
   std::string text;                       ///< a sentence
};

/// What has become of a request to release a link.
struct Released {
   std::string interface;
   std::optional< std::uint64_t > operation; ///< that has done it; nothing: none is known
   bool changed = true;                      ///< by the request
   bool repeated = false;                    ///< its key was used for the same request before
};

/// What has become of a request to apply the configuration file again.
struct Reloaded {
   std::vector< std::string > changes;       ///< one line each, by this request
   std::optional< std::uint64_t > operation; ///< that has made them; nothing: none is known
   bool changed = true;                      ///< by the request
   bool repeated = false;                    ///< its key was used for the same request before
};

/// Each takes the JSON text of an answer. Throws Error (internal) that says what is wrong if it is not of this shape.
Accepted readAccepted( std::string_view json );
Released readReleased( std::string_view json );
Reloaded readReloaded( std::string_view json );
std::vector< Operation > readOperations( std::string_view json );
Operation readOperation( std::string_view json );

} // namespace Api
