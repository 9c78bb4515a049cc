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
   /// `own`: the name of this machine, with or without its domain; `listed`: others, as the operator gives them;
   /// `domains`: those in which this machine looks for names.
   HostNames(
      const std::string & own, const std::set< std::string > & listed,
      const std::set< std::string > & domains = {} );
   /// The domains in which this machine looks for names that have none (resolv.conf), as they are now.
   static std::set< std::string > searchedDomains();

   /// Whether the value of a Host header is meant for us, with any port: an address, `localhost`, the own name alone, as
   /// it is given, and in the domains and `.local`, a name that is listed. In any other domain it may be somebody else's:
   /// names of machines are easily guessed. Nothing at all is meant for us as well: every browser says whom it asks.
   bool serves( const std::string & host ) const;

 private:
   std::set< std::string > names_;
};

} // namespace Agent
