#pragma once

#include "Agent/Model/PlanPurpose.h"
#include "Agent/Model/Samples.h"
#include "Agent/Plan/Judgement.h"
#include "Agent/Plan/Session.h"
#include "Config/Configuration.h"
#include "DataPlane/Switch.h"
#include "Platform/Cog/Scheduler.h"
#include "Platform/Model/Errdisable.h"
#include "Platform/Model/IntfGroup.h"
#include "Platform/Model/IntfMaintenance.h"
#include "Platform/Model/IntfMaintenanceProfile.h"
#include "Platform/Model/Maintenance.h"
#include "Platform/Model/MaintenanceGroup.h"
#include "Platform/Model/MaintenanceProfile.h"
#include "Platform/Model/MaintenanceUnit.h"

#include <deque>
#include <map>
#include <memory>

/// Purpose: gathers the facts that a plan is judged by: from entities, samples, configuration and the switch. Reads only.
/// Owner: the agent.
///
/// A plan takes some turns: the switch is asked for routes, then samples are read and those ports asked for their speed that
/// it depends on, a few in each turn, then all that changes from turn to turn is gathered and judged in one. Plans that are
/// asked for together are made one after the other, so that a turn does work for one only, the most urgent first. Who only
/// wants to look, at the same unit from the same place and with the same routes, has the same plan, which is told to a few in
/// each turn. Who would begin what has begun by then is told so at once, by a plan without facts. It is the switch that keeps
/// the time: it answers with what it knows by then, or never any more when it has been stopped.
namespace Agent {

struct Plan {
   double time = 0;   ///< seconds of the agent's clock, of the facts
   double waited = 0; ///< seconds since it was asked for; of several who share it, by the first
   PlanFacts facts;
   std::vector< PlanFinding > findings;
   std::string text; ///< as it is told to those who look; empty: it is made for something that begins
};

class Planner {
 public:
   struct Model {
      Vel::Ptr< const Maintenance::Unit::StatusDir > unitStatusDir;
      Vel::Ptr< const Interface::AllIntfStatusDir > allIntfStatusDir;
      Vel::Ptr< const IntfMaintenanceProfile::StatusDir > intfProfileStatusDir;
      Vel::Ptr< const Maintenance::Profile::DefaultProfile > defaultIntfProfile;
      Vel::Ptr< const IntfMaintenance::IntfToGroupDir > intfToGroupDir;
      Vel::Ptr< const IntfGroup::StatusDir > intfGroupStatusDir;
      Vel::Ptr< const Maintenance::GroupToUnitDir > groupToUnitDir;
      Vel::Ptr< const Errdisable::CauseStatus > cause;
   };
   struct Hooks {
      std::function< const Config::Configuration &() > configuration;
      /// Why nobody can say what a link carries; empty: it can be said.
      std::function< std::string( const Wire::IntfId & ) > uncounted;
      /// A plan as it is told; asked for once, however many have it.
      std::function< std::string( const Plan & ) > text;
   };
   /// Interfaces whose samples are read in one turn.
   static constexpr unsigned curvesPerTurn = 16;
   /// Seconds that ports are asked for their speed in one turn: a driver may take its time.
   static constexpr double speedQuantum = 0.002;
   /// Interfaces whose samples are read for one plan; of more, only what they carry now is known.
   static constexpr unsigned mostCurves = 2048;
   /// Seconds of which the 95th percentile is taken.
   static constexpr double highRange = 600;
   /// Seconds after which nothing should begin by a plan: clients give up at 30.
   static constexpr double patience = 20;

   /// All given; switch and samples outlive it.
   Planner(
      Vel::Ptr< Cog::Scheduler > scheduler, DataPlane::Switch & theSwitch, const SampleSource & samples,
      Model model, Hooks hooks );
   ~Planner();
   Planner( const Planner & ) = delete;
   Planner & operator=( const Planner & ) = delete;

   using Planned = std::function< void( const Plan & plan ) >;
   /// Plans a unit that there is, and calls back once, in a later turn. `session`: from where the operator comes.
   void plan(
      const std::string & unit, const std::optional< Session > & session, PlanPurpose purpose,
      Planned planned );
   /// Those who may wait to look, on this machine and over the web.
   static constexpr long mostLooking = 256, mostLookingOverWeb = 64;
   /// Whether so many wait for the same purpose that one more should be turned away.
   bool isBusy( PlanPurpose purpose ) const;
   /// Those who are told of one plan in one turn.
   static constexpr std::size_t toldPerTurn = 4;

   /// The rate that an interface has had no more than for 95 % of a time; nothing: nothing is known of it.
   static std::optional< PlanRates > high( const SampleCurve & curve );
   /// Of how many seconds of a curve that is known, `highRange` at the most.
   static double highSeconds( const SampleCurve & curve );

 private:
   struct Job {
      std::string unit;
      std::optional< Session > session;
      PlanPurpose purpose;
      double asked;                  ///< when
      std::deque< Planned > planned; ///< who are not told yet
      DataPlane::RouteAnswer routes;
      double begun = 0; ///< when it was known what to read and to ask
      /// Whose samples are to be read; nothing: not known yet.
      std::optional< std::deque< std::string > > unread = {};
      std::deque< std::string > unasked = {}; ///< ports whose speed is in question
      std::map< std::string, double > speeds = {};
      std::map< std::string, PlanLoad > high = {}; ///< without what is carried now
      std::optional< Plan > plan = {};             ///< nothing: not made yet
   };
   const std::shared_ptr< const int > & looksOf( PlanPurpose purpose ) const;
   void enqueue( Job job );
   void workSoon();
   void work();
   bool beginsNothing( const Job & job ) const;
   Plan planOf( const Job & job ) const;
   bool gather( Job & job );
   void question( Job & job );
   void askSpeeds( Job & job );

   PlanFacts factsOf( const Job & job ) const;
   std::map< std::string, std::string > leavingToo( const std::string & unit ) const;
   std::map< std::string, Wire::IntfId > interfacesOf( const std::string & unit ) const;
   PlanInterface interfaceOf( const std::string & unit, const Wire::IntfId & intf ) const;
   void addProfile( PlanInterface & interface, const Wire::IntfId & intf ) const;
   std::vector< PlanRedundancy > redundancyOf( const std::string & unit ) const;
   bool isNormal( const std::string & unit ) const;
   std::optional< PlanRates > current( const Wire::IntfId & intf ) const;

   Vel::Ptr< Cog::Scheduler > scheduler_;
   DataPlane::Switch & switch_;
   const SampleSource & samples_;
   Model model_;
   Hooks hooks_;
   std::deque< Job > jobs_; ///< whose routes are known
   /// Of ports that were asked for it, for all plans that go by one reading of the routes; nothing: nobody knows.
   std::map< std::string, std::optional< double > > speeds_;
   std::weak_ptr< const DataPlane::RouteTable > speedsOf_; ///< that reading
   bool working_ = false;
   std::shared_ptr< const int > looks_;    ///< shared with each who waits to look, whoever forgets him
   std::shared_ptr< const int > webLooks_; ///< the same of those over the web
   std::shared_ptr< Planner * > self_;     ///< shared with who may outlive this object
};

} // namespace Agent
