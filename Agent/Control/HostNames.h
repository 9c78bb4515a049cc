#pragma once

#include <set>
#include <string>

/// Purpose: the names under which the web address is asked for. A page of somebody else may get a browser to ask us under
/// a name of its own, which it lets point here, and would then read the answers as if they were its own. Such a request
/// bears that name.
/// Owner: the server.
namespace Agent {

class HostNames {
 public:
   HostNames() = default;
   /// `own`: the name of this machine, with or without its domain; `listed`: others, as the operator gives them.
   HostNames( const std::string & own, const std::set< std::string > & listed );

   /// Whether the value of a Host header is meant for us, with any port: an address, `localhost`, the own name with any
   /// domain, a name that is listed. Nothing at all is as well: every browser says whom it asks.
   bool serves( const std::string & host ) const;

 private:
   std::string own_; ///< without its domain
   std::set< std::string > listed_;
};

} // namespace Agent
