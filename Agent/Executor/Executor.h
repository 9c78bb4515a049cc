#pragma once

#include "Agent/Executor/Drift.h"
#include "Agent/Model/LinkJournal.h"
#include "Api/Error.h"
#include "DataPlane/Switch.h"
#include "Platform/Cog/Scheduler.h"
#include "Platform/Cog/TimerWheel.h"
#include "Platform/Model/Bridging.h"
#include "Platform/Model/Errdisable.h"
#include "Platform/Model/Interface.h"
#include "Platform/Model/Lag.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>

/// Purpose: stands between the model and the switch: publishes the switch's links, carries out the entries of the
/// error-disable cause, and keeps the journal of links that we hold.
/// Owner: the agent. Works in turns: an entry is acted on in a later turn, a request leaves when its journal entry is
/// committed.
///
/// Invariants:
/// 1. The status that the model shows is the link's state apart from our own shutdown. While we hold a link down its
///    status stays what it was, and after a release it stays until the link is up or `releaseGrace` has passed, so that a
///    slow carrier does not look like a flap. One that was to be held down when the machine was started keeps it until the
///    machine has set it up, or it need not be held any more. A link that is gone has no status; one that somebody else raises while
///    we hold it is shown as it is.
/// 2. An Ethernet port has a status only while it has counters, and a port-channel or VLAN interface only on a switch
///    that tells their members, while it has some and while those have counters, so that what cannot be counted never
///    reads as quiet. A port-channel or VLAN interface that we hold down carries nothing and keeps its status even when
///    it loses its members; without it our hold would be let go.
/// 3. The last wish of others holds: a link that was down before we came, or that somebody else has set down since, is
///    not raised when we let go. What others do to links that we hold or watch is told (Drift.h) and not fought over.
///    A bridge that goes down or up and takes its VLAN interfaces with it is nobody's wish for those: one that we hold is
///    set down again. Nor is it anybody's wish that a machine that starts sets its links up: one that is to be held down
///    since before is set down again when it comes up for the first time.
///    A link that was released by hand is not shut again before all its units are normal, whatever is decided meanwhile,
///    by a changed profile or by a plug-in that starts and finds its interface drained: its entry in the cause is
///    forgotten in the same turn, after everything that is decided in it and before others look.
/// 4. No link is asked to be shut before its line of the journal would outlive this process, however long that takes: the
///    next agent knows each link that may be shut, and what it has lost. To set one up is asked for at the end of the turn
///    in any case. What the journal knows and the switch has not acknowledged is asked for again. A link whose addresses
///    and routes cannot be read is not shut until they can be.
/// 5. What a link that was let go of can get back only when it has a carrier is kept in the journal until it has one, also
///    when it is held once more meanwhile. So is what could not be given back for a reason that says nothing of it, which
///    is tried again, and what our shutdown has taken of a link that somebody else has set down since.
namespace Agent {

class Executor final : private DataPlane::Listener {
 public:
   /// Seconds for which a released link keeps the status from before.
   static constexpr double releaseGrace = 10;
   /// Seconds after which a request that has failed is made again.
   static constexpr double retryAfter = 5;
   /// Seconds after which it is told that a request waits for the journal.
   static constexpr double journalPatience = 2;
   /// Seconds after which counters that could not be read are read again.
   static constexpr double countersRetryAfter = 1;

   /// Seconds after a bridge is seen set up in which a VLAN interface that comes up on it does so with it.
   static constexpr double followTime = 1;

   /// All given.
   struct Model {
      Vel::Ptr< Interface::AllIntfStatusDir > allIntfStatusDir;
      Vel::Ptr< Lag::Config > lagConfig;
      Vel::Ptr< Bridging::VlanStatusDir > vlanStatusDir;
      Vel::Ptr< Errdisable::CauseStatus > cause;
      Vel::Ptr< LinkJournal > journal;
      Vel::Ptr< VelPool::EntityManager > pool;
   };
   /// Who else is told of interfaces, and is asked of them. All given.
   struct Hooks {
      std::function< void( const Wire::IntfId & ) > intfIs, intfDel;
      /// Whether any unit is not normal.
      std::function< bool() > isAnyUnderWay;
      /// Whether a unit of it is not normal; whether it has a record.
      std::function< bool( const Wire::IntfId & ) > isUnderWay, isMonitored;
      /// Takes a line for the agent's log.
      std::function< void( const Vel::String & line ) > noted;
      /// Calls back after a turn, as soon as the next agent will know all that has been written until now, also if this one
      /// is killed.
      std::function< void( std::function< void() > call ) > whenKept;
   };
   Executor(
      Vel::Ptr< Cog::Scheduler > scheduler, Vel::Ptr< Cog::TimerWheel > wheel,
      Vel::Ptr< DataPlane::Switch > theSwitch, Model model, Hooks hooks );
   ~Executor();
   Executor( const Executor & ) = delete;
   Executor & operator=( const Executor & ) = delete;

   /// Takes in all links and counters, then reconciles the journal. The reason if the switch cannot be read.
   DataPlane::Outcome start();

   /// Reads the counters of this turn; true: the timers may run. Called when a timer is due.
   bool countersFresh();
   /// Since when the counters cannot be read, in seconds of the clock; none: they can.
   std::optional< double > countersFailedSince() const { return countersFailedSince_; }
   /// When they were read last, in seconds of the clock; 0: never.
   double countersRead() const { return countersRead_; }
   const Vel::String & countersProblem() const { return countersProblem_; }
   /// What is wrong with the switch, and with the first link that could not be set or lacks something; empty: nothing.
   Vel::String problem() const;
   bool switchDegraded() const { return health_.degraded; }

   /// Whether anything that was left is being given back.
   bool isRestoring() const;

   /// Called at the end of each turn, before it is committed.
   void turnEnds();
   /// How often the switch has lost facts, which it has read again since.
   Vel::U32 overruns() const { return overruns_; }

   struct Released {
      std::optional< Api::Error > refused;
      bool changed = false; ///< the link was to be held until now
   };
   /// Raises a link that we hold and forgets its entry in the cause, whatever the stages say; until its units are normal it
   /// gets no other. One that is on its way up is asked for once more.
   Released release( const std::string & name );
   /// Forgets entries of the cause that belong to no record: nobody would ever take them away. Called once, when the
   /// plug-in is up.
   void orphansDel( const std::function< bool( const Wire::IntfId & ) > & hasRecord );

   /// The switch's own state of a link: "up", "down" or "unknown".
   std::string linkState( const Wire::IntfId & intf ) const;
   /// Why nobody can say what a link that is up carries, for the operator; empty: it can be said, or the link is down, or
   /// it is of a kind that is never counted.
   Vel::String uncounted( const Wire::IntfId & intf ) const;
   /// Whether a link that was let go of is on its way back: it is to be set up, is given back what it had lost, or has been
   /// without a carrier for less than twice `releaseGrace` since then. One that could never be set down has been there all
   /// the time.
   bool comesBack( const Wire::IntfId & intf ) const;
   Drift drift( const Wire::IntfId & intf ) const { return drifts_.of( intf ); }
   /// Why a link that is to be held down has not been set down yet, for the operator; empty: it has, it is not to be, or
   /// somebody else has set it up.
   Vel::String shutProblem( const Wire::IntfId & intf ) const;

 private:
   struct VelCause final : Vel::ReactorTo< Executor, Errdisable::CauseStatus > {
      using ReactorTo::ReactorTo;
      void onIntfStatus( const Wire::IntfId & intf ) override { sm()->runSoon( intf ); }
   };
   struct Wakeup final : Cog::TimerReactor< Executor > {
      using TimerReactor::TimerReactor;
      void onTime() override { sm()->handleWakeup(); }
   };
   /// A link that we know of, and how its status is held.
   struct Known {
      DataPlane::Link link;
      bool present = false;
      DataPlane::RequestId request = 0; ///< that is on its way; 0: none
      DataPlane::RequestId restore = 0; ///< of what was left, that is on its way; 0: none
      bool sent = false;       ///< it has left; one to set the link down waits until the journal is kept
      bool inVain = false;     ///< the last one of this agent has not set it, or has not left
      bool overtakes = false;  ///< an earlier request was on its way when it was made
      bool reached = false;    ///< since it was made, the link has come to be as it wants
      double askedTime = 0;    ///< when the last request was made
      double retryTime = 0;    ///< a failed request is made again then; 0: none has failed
      double graceEnd = 0;     ///< until when a released link keeps its status; 0: it does not
      double backEnd = 0;      ///< until when it is on its way back without a carrier; 0: it is not
      bool raised = false;     ///< somebody else has raised it while we hold it
      bool unasked = false;    ///< its entry is new, and nobody has been asked to set it down yet
      double restoreTime = 0;  ///< what was left is tried again then, and not before; 0: with its carrier
      double setUpTime = 0;    ///< when we have seen it set up; 0: not yet
      double followedTime = 0; ///< when its bridge was set up before we set it down again
      Vel::String problem;
      Vel::String refusal;      ///< why it could not be set the last time; empty: it could
      Vel::String refusalNoted; ///< what was noted of that last
   };

   void linkIs( const DataPlane::Link & link ) override;
   void linkDel( const Wire::IntfId & intf ) override;
   void portChannelIs( const Wire::IntfId & port, const Wire::IntfId & portChannel ) override;
   void vlanMemberIs( Vel::U16 vlanId, const Wire::IntfId & member ) override;
   void vlanMemberDel( Vel::U16 vlanId, const Wire::IntfId & member ) override;
   void linkSetDone( DataPlane::RequestId id, const DataPlane::LinkSetResult & result ) override;
   void linkSetRestores( DataPlane::RequestId id ) override;
   void rereadIs( bool goesOn ) override { changesMayBeMissed_ = goesOn; }
   void resynchronised() override;
   void healthIs( const DataPlane::Health & health ) override { health_ = health; }

   void adminUpHasChanged( Known & known );
   bool follows( Known & known, LinkJournalEntry * entry );
   void bridgesNote();
   void releasedNote();
   void setByOthers( Known & known, LinkJournalEntry * entry );
   void findDrift();
   void bootNote();
   bool raisedByTheMachine( Known & known );
   void runSoon( const Wire::IntfId & intf );
   void run();
   void execute( const Wire::IntfId & intf );
   void countersSoon();
   void hold( const Wire::IntfId & intf, Known & known );
   void letGo( LinkJournalEntry & entry, Known & known );
   void holdLater( const DataPlane::Outcome & outcome, Known & known );
   void request( LinkJournalEntry & entry, Known & known );
   void setDown( DataPlane::RequestId id, Vel::U64 askedInTurn );
   void requestAgain( LinkJournalEntry & entry, Known & known );
   void handleDue();
   void handleWakeup();
   void wakeupIs( double time );
   void refusalIs( Known & known, const Vel::String & why, const char * direction );
   void leftIs( Known & known, const DataPlane::LinkSetResult & result );
   void lostIsLeft( const LinkJournalEntry & entry, const Known & known );
   void leftIs( const Known & known, const Vel::String & lost, const Vel::String & why );
   Vel::String linkProblem() const;
   void restoreLeft( Known & known );
   void leftIsTried( Known & known, const DataPlane::LinkSetResult & result );
   void leftStart();
   void publish( const Wire::IntfId & intf );
   bool statusHeld( const Wire::IntfId & intf, const Known & known ) const;
   bool hasStatus( const Wire::IntfId & intf, const Known & known ) const;
   bool heldDown( const Wire::IntfId & intf, const Known & known ) const;
   bool canBeCounted( const Wire::IntfId & intf ) const;
   bool hasMembers( const Wire::IntfId & intf ) const;
   bool carries( const Wire::IntfId & intf, const Wire::IntfId & port ) const;
   double now() const { return scheduler_->currentTime(); }

   Vel::Ptr< Cog::Scheduler > scheduler_;
   Vel::Ptr< DataPlane::Switch > switch_;
   Model model_;
   Hooks hooks_;
   Drifts drifts_;
   Vel::U32 overruns_ = 0;
   std::map< Wire::IntfId, Known > known_;
   bool bridgesToNote_ = false;      ///< something was told of a bridge or a VLAN interface
   bool changesMayBeMissed_ = false; ///< links are told as they are by now, not each time that they change
   std::map< DataPlane::RequestId, Wire::IntfId > requests_;
   DataPlane::RequestId lastRequest_ = 0;
   std::set< Wire::IntfId > toRun_;
   std::set< Wire::IntfId > uncounted_; ///< ports that had no counters when they were read last
   Vel::U64 countersTurn_ = 0;          ///< the turn in which the counters were read
   bool countersOk_ = false;
   bool countersPosted_ = false;
   std::optional< double > countersFailedSince_;
   double countersRead_ = 0;
   Vel::String countersProblem_;
   DataPlane::Health health_;
   std::shared_ptr< Executor * > self_; ///< shared with posted tasks, which may outlive this object
   Vel::Watch< VelCause > causeReactor_;
   Vel::Watch< Wakeup > wakeup_;
};

} // namespace Agent
