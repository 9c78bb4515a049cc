#pragma once

#include "Agent/Plan/Judgement.h"
#include "Agent/Plan/Moves.h"
#include "Agent/Plan/Topology.h"

/// Purpose: the chapters of the judgement, one source file each. Used by the judgement only.
namespace Agent {

struct Judging {
   /// The facts outlive it.
   explicit Judging( const PlanFacts & theFacts );
   Judging( const Judging & ) = delete;
   Judging & operator=( const Judging & ) = delete;

   // Judgement.cpp
   void judgeUnit();
   void judgeInterfaces();
   /// What nothing waits for.
   void judgeNotWatched();
   // JudgementOfRoutes.cpp
   void judgePaths();
   void judgeSession();
   // JudgementOfCapacity.cpp
   void judgeCapacity();

   PlanFinding & add( const char * code, PlanSeverity severity, std::vector< std::string > interfaces );
   /// "et2 is on its way out with u2", of those to which that applies; empty: to none.
   std::string leavingText( const std::set< std::string > & interfaces ) const;
   /// A port-channel that works on without some of its members, because of the unit.
   bool losesMembers( const DataPlane::RoutedLink & link ) const;

   const PlanFacts & facts;
   /// The switch as it is; without what leaves with other units; and without the unit as well.
   Topology present, before, after;
   Moves moves;
   std::vector< PlanFinding > findings;
};

} // namespace Agent
