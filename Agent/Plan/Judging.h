#pragma once

#include "Agent/Plan/Judgement.h"
#include "Agent/Plan/Topology.h"

/// Purpose: the chapters of the judgement, one source file each. Used by the judgement only.
namespace Agent {

struct Judging {
   explicit Judging( const PlanFacts & theFacts );

   // Judgement.cpp
   void judgeUnit();
   void judgeInterfaces();
   // JudgementOfRoutes.cpp
   void judgePaths();
   void judgeSession();
   // JudgementOfCapacity.cpp
   void judgeCapacity();
   /// The ports and port-channels that would take over what the unit carries, and what they would take it over from.
   struct Move {
      std::set< std::string > from, to;
      std::map< std::string, double >
         shares; ///< of those in `to`, as routes share traffic; empty: nobody knows
   };
   Move move() const;

   PlanFinding & add( const char * code, PlanSeverity severity, std::vector< std::string > interfaces );

   const PlanFacts & facts;
   Topology before, after;
   std::vector< PlanFinding > findings;
};

} // namespace Agent
