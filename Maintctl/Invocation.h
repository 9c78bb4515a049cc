#pragma once

#include "Config/Duration.h"
#include "Config/Rate.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

/// Purpose: what an operator can ask for: what the command line is made into and what is then done.
namespace Maintctl {

/// The times that an `enter` sets, as they were written: a time of 1s or more, or "never".
struct EnterTimes {
   std::optional< std::string > deadline, revertAfter;
   std::optional< std::string > onOverrun; ///< "keep" or "restore"; only with a deadline
};

/// `enter` and `exit`.
struct Operate {
   enum class Operation { enter, exit };
   Operation operation = Operation::enter;
   std::vector< std::string > units; ///< at least one
   std::optional< std::string > reason;
   bool wait = false;                         ///< until the unit is there
   std::optional< Config::Duration > timeout; ///< of the waiting; nothing: for ever
   bool force = false;                        ///< of an enter: whatever its plan says; there is a reason then
   std::optional< std::string > session = {}; ///< from which address; nothing: from that of this session
   std::optional< std::string > requestKey = {};
   std::map< std::string, std::string > with = {}; ///< to be noted down with it
   EnterTimes times = {};                          ///< of an enter
};

/// What would come of an enter.
struct Plan {
   std::string unit;
   std::optional< std::string > session; ///< as of an enter
};

struct Wait {
   std::string unit;
   Operate::Operation until = Operate::Operation::enter; ///< enter: maintenance; exit: normal
   std::optional< Config::Duration > timeout;
};

struct Show {
   enum class What { units, unit, interfaces, interface, profiles, groups, counters, agent };
   What what = What::units;
   std::string name;   ///< of the unit or interface; for `interfaces` of a unit, or empty
   bool watch = false; ///< over and over; units, unit, interfaces and interface only
   Config::Duration interval = Config::Duration::fromSeconds( 1 ); ///< between two looks, at least 1s
};

struct Explain {
   std::string unit;
};

/// Maintenances of the past, and those that go on.
struct ShowHistory {
   std::string unit; ///< empty: of all units
   unsigned limit = 20;
};

/// One of them in full.
struct Report {
   unsigned id = 0;
   bool csv = false;
};

/// What was asked for and done, newest first.
struct ShowOperations {
   std::string unit;  ///< empty: of all units
   std::string state; ///< empty: all
   unsigned limit = 20;
};

struct ShowOperation {
   unsigned id = 0;
};

/// What has happened, and what happens.
struct Events {
   std::optional< std::uint64_t > after; ///< what came after this one; nothing: the last ones
   std::optional< std::uint64_t > last;  ///< so many; nothing: all after it, or some
   bool follow = false;                  ///< and what happens from now on
};

struct Dump {};

struct ShowFastLog {
   std::optional< std::string > file;      ///< nothing: beside the control socket
   std::optional< std::size_t > lastLines; ///< nothing: all
   unsigned run = 0;                       ///< 0: the present or last one; 1: the one before, and so on
};

struct Trace {
   std::vector< std::pair< std::string, int > > levels; ///< to set, in this order; -1 is off
};

/// What is noted down with an operation.
struct Note {
   std::optional< std::string > reason, requestKey;
   std::map< std::string, std::string > with;
};

struct Release {
   std::string interface;
   bool force = false;
   Note note = {};
};

struct Validate {
   std::string file;
};

struct Reload {
   Note note = {};
};

struct SimulatedTraffic {
   std::string interface;
   Config::Rate in, out;
   std::optional< Config::Duration > ramp; ///< how long the change takes; nothing: at once
};

struct SimulatedLink {
   std::string interface;
   bool up = false;
};

struct SimulatedAdvance {
   Config::Duration by;
};

using Command = std::variant<
   Operate, Plan, Wait, Show, Explain, ShowHistory, Report, ShowOperations, ShowOperation, Events, Dump,
   ShowFastLog, Trace, Release, Validate, Reload, SimulatedTraffic, SimulatedLink, SimulatedAdvance >;

/// Where the control socket is unless somebody says otherwise.
inline constexpr char defaultSocket[] = "/run/maintd/control.sock";

struct Invocation {
   bool json = false;
   bool progress = true; ///< may be drawn if there is a terminal
   std::string socket = defaultSocket;
   Command command;
};

/// How the program ends.
enum class ExitStatus {
   done = 0,
   failed = 1,       ///< refused, or failed
   usage = 2,        ///< the command line makes no sense
   notReachable = 3, ///< there is no agent
   notMet = 4,       ///< timed out, or what was waited for will not come
   needsForce = 5,
   interrupted = 130
};

} // namespace Maintctl
