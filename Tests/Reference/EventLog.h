#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// Purpose: what is written into the world around the drain-watching plug-in, and what must be published afterwards, in
/// plain numbers. The story teller writes each event into the entities that the plug-in watches and hands the same event
/// to the model; after each one it compares what both make of it. Nothing else is shared between the two.
///
/// One event is one write (delivered to whoever watches before the next one begins), or one step of time. An event
/// about something that is not there changes nothing, unless it says that it makes it: a threshold of a profile that
/// has gone, a stage without a record, a crash of a plug-in that does not run. The same goes for one that makes what
/// is there, or starts what runs. So events can be left out of a story and the rest still makes one.
/// Interfaces, units, groups and profiles have numbers. Interfaces are numbered in the order of their ids, so the walk
/// through a backlog in key order is a walk in the order of the numbers. Rates are bits per second, times seconds.
namespace Reference {

using Intf = int;
using Unit = int;
using Group = int;
using Profile = int;
/// What selects the default profile, where a profile can be selected.
constexpr Profile defaultProfile = -1;
/// No profile, no port-channel.
constexpr int none = -2;

enum class IntfKind { ethernet, portChannel, vlan, subInterface };

/// What never changes in a story.
struct World {
   struct Interface {
      IntfKind kind = IntfKind::ethernet;
      int vlanId = 0; ///< of a VLAN interface
   };
   std::vector< Interface > intfs;
   int units = 0;
   int groups = 0;
   int profiles = 0;
   double start = 0;              ///< what the clock shows at first
   double backlogQuantum = 0.010; ///< live seconds after which a run over the backlog pauses
   /// Live seconds that each supported interface of the backlog takes. They pass when its start or stop in its units
   /// is counted; looking at the clock takes no time.
   double itemCost = 0;
};

enum class StageClass { enter, exit };

enum class EventKind {
   // ---- links and their traffic
   linkUp,       ///< intf: its status is made if need be, and is up
   linkDown,     ///< intf: its status is made if need be, and is down
   linkGone,     ///< intf: its status goes
   octets,       ///< intf (Ethernet): its counters are made if need be and show in, out (no out: not known)
   countersGone, ///< intf (Ethernet): its counters go
   lagMember, ///< intf (Ethernet) is configured into port-channel other; other = none: into none, the entry stays
   lagMemberGone,  ///< intf: its entry goes
   vlanMade,       ///< number: the status of the VLAN with this id is made
   vlanGone,       ///< number: it goes with all its ports
   vlanMember,     ///< number, intf: the VLAN, which is there, gets the port
   vlanMemberGone, ///< number, intf

   // ---- groups, units and profiles
   entryMade,      ///< intf: its mapping entry, without groups and selection
   entryGone,      ///< intf
   entryGroup,     ///< intf, group: one more group in the entry
   entryGroupGone, ///< intf, group
   selectionCause, ///< intf, number: the cause of a change of selection (2 is a change by selection)
   selection, ///< intf, profile: selected for the interface (defaultProfile: the default one, by its token)
   selectionGone, ///< intf: nothing selected any more
   groupMade,     ///< group: its status, empty
   groupGone,     ///< group
   groupIntf,     ///< group, intf: one more member in the group's status
   groupIntfGone, ///< group, intf
   mapping,     ///< group, unit: the group belongs to the unit (an entry is made empty first, then this name)
   mappingGone, ///< group, unit: the last name gone, the entry goes
   /// profile, with thresholdKbps, loadInterval, shutdown, maxDelay: a new one under this name, put there with its
   /// values as one write; the one that is there leaves first
   profileMade,
   profileGone,  ///< profile
   threshold,    ///< profile, thresholdKbps
   loadInterval, ///< profile, loadInterval
   shutdown,     ///< profile, shutdown
   maxDelay,     ///< profile, maxDelay
   defaultName,  ///< profile: the name of the default profile (none: empty)

   // ---- units and stages, as the framework of stages writes them. An instance is a unit and a generation.
   unitMade,       ///< unit: its status
   unitGone,       ///< unit
   unitState,      ///< unit, number: 0 normal, 2 entering, 3 in maintenance, 5 leaving
   unitGeneration, ///< unit, number
   unitInstance,   ///< unit, stageClass, number: name of its instance of this class; number = none: empty
   progressMade,   ///< stageClass, unit, number (generation): record of a running instance, no stage yet
   progressGone,   ///< stageClass, unit, number
   stageStatus,    ///< stageClass, unit, number, value: of the stage "drainwatch" in the record
   stage,          ///< stageClass, unit, number, other: the stage that runs: 1 "drainwatch", 2 another one
   completionMade, ///< stageClass, unit, number: completion status of the instance
   completionGone, ///< stageClass, unit, number

   // ---- time and the plug-in itself
   turn, ///< one turn of the loop: deferred work runs, each task once; the clock goes on only by what items took
   /// to: the clock goes on, at every tick that is due what is due fires, then deferred work runs to its end. A time
   /// that has passed stands for now. Counters stand still meanwhile: what is to be seen at the end of it has been
   /// written before
   time,
   start,  ///< the plug-in starts on what it finds, then deferred work runs to its end
   crash,  ///< the plug-in is gone without a word (what it published stays); start comes next
   unload, ///< the plug-in goes in order; what it published shows what it does then
};

struct Event {
   EventKind kind{};
   Intf intf = none;
   Unit unit = none;
   Group group = none;
   Profile profile = none;
   int number = none;
   int other = none;
   std::uint32_t value = 0;
   StageClass stageClass = StageClass::enter;
   std::uint64_t in = 0;
   std::optional< std::uint64_t > out{}; ///< below 2^63
   double thresholdKbps = 0;
   std::uint32_t loadInterval = 0;
   bool shutdown = false;
   double maxDelay = 0;
   double to = 0;
};

// ---- what is published

struct Rates {
   double in = 0;
   double out = 0;
   double time = 0;
   bool operator==( const Rates & ) const = default;
};

enum class MonState { idle, enterMaint, underMaint, stopped };

/// The record of an interface.
struct Record {
   Profile profile = none; ///< by name
   double startTime = 0;
   Rates cur, prev;
   double lastSampleTime = 0;
   std::uint32_t totalSamples = 0;
   std::uint32_t consecutiveDrained = 0;
   std::uint32_t abovePre = 0, belowPre = 0, abovePost = 0, belowPost = 0;
   MonState state = MonState::idle;
   double stateTime = 0;
   bool spike = false;
   bool stale = false;
   bool operator==( const Record & ) const = default;
};

struct UnitPublished {
   std::uint64_t aggregateIn = 0, aggregateOut = 0;
   double aggregateTime = 0;
   std::set< Intf > violating;
   std::uint32_t totalViolations = 0;
   bool operator==( const UnitPublished & ) const = default;
};

struct UnitMonitor {
   std::uint32_t generation = 0;
   std::set< Intf > monitored, drained;
   bool operator==( const UnitMonitor & ) const = default;
};

struct IntfMonitor {
   MonState state = MonState::idle;
   MonState initialState = MonState::enterMaint;
   Profile profile = none; ///< the one it holds, by name
   std::set< Unit > dependents;
   /// The time that its timer is set to, which is due at the first whole second from then on; nothing while it is
   /// disarmed.
   std::optional< double > timer;
   bool operator==( const IntfMonitor & ) const = default;
};

struct Completion {
   StageClass stageClass{};
   Unit unit = none;
   int generation = none;
   auto operator<=>( const Completion & ) const = default;
};

/// The counters of the plug-in, in the order in which it declares them.
enum Counter : std::size_t {
   numMaintEnter,
   numMaintExit,
   numMaintExitNoUnitMon,
   numMaintEnterUnitMonPresent,
   numMaintExitInMaintModeEnter,
   numNotifyStageCompletion,
   numUnitStatusDel,
   numNoVlanStatus,
   numNoIntfCounter,
   numNoNotifyNoStageInput,
   numNoNotifyActiveStageMismatch,
   numNoNotifyAlreadyNotified, ///< nobody filters repeated completions
   numNoNotifyNoUnitStatus,
   numIntfMonInitialStatePassive,
   numStartIntfMonInUnits,
   numStopIntfMonInUnits,
   numIntfMonProfileChange,
   numIntfMonProfileDelete,
   numIntfMonPendingProfileResolved,
   numIntfMonDefProfileUpdate,
   numIntfMonIntfNotSupported,
   numIntfMonNoIntfStatus,
   numIntfMonIntfOperNotUp
};
constexpr std::size_t counterCount = numIntfMonIntfOperNotUp + 1;

struct Published {
   std::map< Intf, Record > records;
   std::set< Intf > entering, under, spikes; ///< the three sets of interfaces beside the records
   std::map< Intf, double > shut;            ///< since when
   std::map< Unit, UnitPublished > units;    ///< those with a status
   std::set< Completion > complete;
   // ---- what the plug-in holds itself: nothing while it does not run
   std::map< Unit, UnitMonitor > unitMonitors;
   std::map< Intf, IntfMonitor > intfMonitors;
   std::set< Intf > backlog;
   Intf bookmark = none; ///< where the next run over the backlog goes on
   std::array< std::uint32_t, counterCount > counters{};
};

/// What was decided during one event, each with the clock's time, in rising order: what one event decides about several
/// interfaces is not ordered among them. Each is what a reactor to the entity it concerns would be told: a write that
/// changes nothing decides nothing, and what comes and goes within one event is decided twice.
struct Decision {
   enum class Kind {
      entering,   ///< an interface joins the set of those that are watched until they are quiet
      under,      ///< it joins the set of those under maintenance
      stopped,    ///< the state in its record becomes stopped: it is watched no longer
      shut,       ///< it is shut, or the time of it becomes another
      released,   ///< it is not shut any longer
      drained,    ///< it joins those that the unit counts as drained
      notDrained, ///< it leaves them
      joined,     ///< it joins those that the unit watches
      left,       ///< it leaves them
      completed,  ///< a completion entry of the unit is made
   };
   Kind kind{};
   int who = none;   ///< interface; of completed the unit
   int other = none; ///< the unit concerned, if one; of completed the generation
   double time = 0;
   auto operator<=>( const Decision & ) const = default;
};

} // namespace Reference
