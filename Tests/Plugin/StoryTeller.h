#pragma once

#include "Tests/Plugin/Chance.h"
#include "Tests/Plugin/Written.h"

#include <deque>
#include <functional>

/// Purpose: makes up a story, event after event: what the switch, its operators and the framework of stages do, in the
/// orders that they keep. What the framework and the links do next depends on what is published, as it does in service.
///
/// A step is something somebody does, such as putting a unit into maintenance; it becomes several events. A scene is a
/// row of steps that leads to what pure chance would seldom bring about. Restarts come between any two events.
namespace Tests {

/// A switch with some interfaces of each kind, units and profiles. The same for the same seed.
Reference::World randomWorld( std::uint64_t seed );

class StoryTeller {
 public:
   struct Manner {
      bool linksFall =
         false; ///< links go down some events after they are shut and come up after they are released
      bool unruly = false; ///< the framework of stages breaks its own rules now and then
   };
   /// `written` and `published` are brought up to date by the caller after each event.
   StoryTeller(
      std::uint64_t seed, const Reference::World & world, Manner manner, const Written & written,
      const Reference::Published & published );

   Reference::Event next();

 private:
   using Event = Reference::Event;
   using EventKind = Reference::EventKind;
   using Intf = Reference::Intf;
   using Unit = Reference::Unit;
   using Group = Reference::Group;
   using Profile = Reference::Profile;
   using StageClass = Reference::StageClass;
   using Step = std::function< void() >;

   // ---- StoryTeller.cpp: how it goes on
   void tell( const Event & event ) { events_.push_back( event ); }
   /// To be done when the events told so far have happened; after the steps that are planned already.
   void then( Step step ) { script_.push_back( std::move( step ) ); }
   void plan();
   std::optional< Event > restart();
   std::optional< Event > linkReaction();
   void watchShutdowns();
   void noteTime( const Event & event );
   /// The clock, or somewhat more: items of the backlog may have taken some of it.
   double now() const;
   void pass( double seconds );
   void passTo( double target );
   void countTraffic( double until );
   void rateIs( Intf port, std::uint64_t in, std::uint64_t out );
   std::uint64_t someRate();

   // ---- StoryLinks.cpp: the switch
   void setUp();
   void stepTime();
   void stepTurn();
   void stepLink();
   void stepTraffic();
   void stepCounters();
   void stepLag();
   void stepVlan();
   void linkIs( Intf intf, bool up );

   // ---- StorySteps.cpp: operators and the framework of stages
   void stepUnit();
   void stepUnitStatus();
   void stepUnruly();
   void stepGroup();
   void stepMapping();
   void stepSelection();
   void stepProfile();
   void stepDefault();
   void frameworkLooks();
   void enter( Unit unit );
   void exit( Unit unit );
   void startStage( StageClass stageClass, Unit unit, int generation );
   void retire( StageClass stageClass, Unit unit, int generation );
   void join( Intf intf, Group group );
   void leave( Intf intf, Group group );
   void select( Intf intf, Profile profile, int cause = 2 );
   void makeProfile( Profile profile );
   void editProfile( Profile profile );

   // ---- StoryScenes.cpp
   void stepScene();
   void sceneSameTick();
   void sceneTwoUnits();
   void sceneEnterShared();
   void sceneStopped();
   void sceneTwoViolations();
   void sceneExitDuringEnter();
   void sceneProfileDeletedInUse();
   void sceneProfileRemade();
   void scenePendingProfile();
   void sceneNoProfile();
   void sceneMissingProfile();
   void sceneBurst();
   void sceneSpike();

   // ---- choices
   Intf someIntf() { return chance_.pick( static_cast< int >( world_.intfs.size() ) ); }
   Intf somePort();
   Unit someUnit() { return chance_.pick( world_.units ); }
   Group someGroup() { return chance_.pick( world_.groups ); }
   /// One that is there, by its name; none if there is none.
   Profile someProfile();
   bool is( Intf intf, Reference::IntfKind kind ) const {
      return world_.intfs[static_cast< std::size_t >( intf )].kind == kind;
   }
   /// Monitored interfaces that pass a test; none if there is none.
   Intf someMonitored( const std::function< bool( Intf, const Reference::IntfMonitor & ) > & test );
   /// A unit in this state; none if there is none.
   Unit someUnitIn( std::initializer_list< int > states );
   bool someMonitorWithoutProfile() const;
   /// No interface waits to be looked at, so that time can pass without anything beginning.
   void settle();

   struct Traffic {
      std::uint64_t inRate = 0, outRate = 0; ///< octets a second
      std::uint64_t in = 0, out = 0;
      double inRest = 0, outRest = 0;
      bool hasOut = true;
   };

   Chance chance_;
   const Reference::World world_;
   const Manner manner_;
   const Written & written_;
   const Reference::Published & published_;
   std::deque< Event > events_;
   std::deque< Step > script_;

   std::map< Intf, Traffic > traffic_;
   double counted_;   ///< until when the traffic has been counted
   double time_;      ///< that was told last
   double spent_ = 0; ///< by items of the backlog since then, at most
   std::uint32_t itemsSeen_ = 0;
   std::map< Unit, int > generations_; ///< the last one that was given out
   std::set< Intf > shut_;             ///< that the links know of
   std::set< Intf > unplugged_;
   std::deque< Intf > reactions_;
   int restartIn_ = -1; ///< events until the plug-in that has gone comes back
   int calm_ = 0;       ///< scenes that neither restarts nor links may disturb
};

} // namespace Tests
