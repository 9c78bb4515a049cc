#pragma once

#include <map>
#include <set>
#include <string>

/// Purpose: since when something is wrong with the agent, for problems whose source does not know it.
/// Owner: the agent, which asks for all of them again and again, and says when it has asked for all.
namespace Agent {

class ProblemTimes {
 public:
   /// Something is wrong now. Since when: it is new if it was not there when all were asked for the last time.
   double since( const std::string & what, double now ) {
      present_.insert( what );
      return since_.try_emplace( what, now ).first->second;
   }
   /// What was not asked for since the last call of this is over.
   void allAsked() {
      std::erase_if( since_, [this]( const auto & problem ) { return !present_.count( problem.first ); } );
      present_.clear();
   }

 private:
   std::map< std::string, double > since_;
   std::set< std::string > present_;
};

} // namespace Agent
