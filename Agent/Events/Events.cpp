#include "Agent/Events/Events.h"

#include "Api/Values.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <utility>

namespace Agent {

using nlohmann::json;

namespace {

const char * const agentName = "maintd";

std::string contentsOf( const IntfMaintenanceProfile::Status & profile ) {
   const double delay = profile.shutdownMaxDelay();
   std::string text = "threshold " + Api::rateText( profile.drainWatchThresholdInKbps() * 1000 ) +
                      ", load interval " + std::to_string( profile.drainWatchLoadInterval() ) + " s, ";
   if ( !profile.shutdown() )
      return text + "no shutdown";
   return text + "shutdown" +
          ( std::isfinite( delay ) ? ", at the latest after " + std::to_string( std::llround( delay ) ) + " s"
                                   : " when drained" );
}

json numbersOf( const IntfMaintenanceProfile::Status & profile ) {
   const double delay = profile.shutdownMaxDelay();
   return {
      { "threshold-bps", profile.drainWatchThresholdInKbps() * 1000 },
      { "load-interval-seconds", profile.drainWatchLoadInterval() },
      { "shutdown", profile.shutdown() },
      { "shutdown-max-delay-seconds", std::isfinite( delay ) ? json( delay ) : json( nullptr ) } };
}

/// What interfaces carry changes all the time, and stands in the log of events alone.
bool isDeed( const EventWriter::About & about ) {
   return about.type == EventType::unit || about.what == "shut" || about.what == "released" ||
          about.what == "configuration-taken";
}

EventWriter::About aboutProfile( const std::string & name, const char * what, std::string text ) {
   return { EventType::profile, name, what, {}, std::move( text ) };
}

} // namespace

Events::Events( Vel::Ptr< Cog::TimerWheel > wheel, Model model, Hooks hooks )
   : model_( std::move( model ) ),
     hooks_( std::move( hooks ) ),
     writer_(
        model_.log, hooks_.wallTime,
        [this]( const EventWriter::About & about ) {
           if ( isDeed( about ) )
              hooks_.deedNoted( about.wrong, about.text );
        } ),
     units_(
        writer_, wheel, { model_.unitStatusDir, model_.unitRunDir, model_.unitCommandsDir, model_.told },
        { hooks_.now, hooks_.stage, hooks_.settling,
          [this]( const Wire::IntfId & intf ) { interfaces_.violation( intf ); } } ),
     times_(
        writer_, { model_.unitStatusDir, model_.unitTimesDir, model_.told },
        { hooks_.now, hooks_.wallTime } ),
     interfaces_(
        writer_, std::move( wheel ),
        { model_.allIntfStatusDir, model_.intfToGroupDir, model_.groupToUnitDir, model_.defaultIntfProfile,
          model_.intfProfileStatusDir, model_.monIntfStatusDir, model_.unitStatusDir, model_.insightDir,
          model_.cause, model_.told },
        { hooks_.now, hooks_.drift, hooks_.forced } ),
     hookEvents_( writer_, model_.told ) {}

// ---- the agent

void Events::tell( const char * what, const std::string & text ) {
   writer_.write( { EventType::agent, agentName, what, {}, text } );
}

void Events::started( const std::string & version ) {
   const EventLog & log = *model_.log;
   const bool first = log.last() == 0;
   const Event * const last = log.event( log.last() );
   const bool killed = last && last->json.find( "\"what\":\"stopped\"" ) == Vel::String::npos;
   if ( first ) {
      writer_.silentIs( true );
      units_.allChanged();
      interfaces_.allChanged();
      lookAtProfiles();
      units_.look();
      times_.look();
      interfaces_.look();
      writer_.silentIs( false );
   }
   writer_.write(
      { EventType::agent,
        agentName,
        "started",
        {},
        "the agent starts" + std::string( killed ? "; the one before it had ended without a word" : "" ) },
      { { "version", version }, { "killed", killed } } );
   configurationChanged_ = true;
   startTime_ = hooks_.now();
   running_ = true;
}

void Events::stopped() {
   if ( !std::exchange( running_, false ) )
      return;
   tell( "stopped", "the agent ends; links and units stay as they are" );
}

void Events::configurationTaken( const std::vector< std::string > & changes ) {
   configurationChanged_ = true;
   if ( !changes.empty() )
      writer_.write(
         { EventType::agent,
           agentName,
           "configuration-taken",
           {},
           "the configuration is taken: " + changes.front() +
              ( changes.size() > 1 ? ", and " + std::to_string( changes.size() - 1 ) + " more changes"
                                   : "" ) },
         { { "changes", changes } } );
}

void Events::configurationRefused( const std::string & why ) {
   writer_.write(
      { EventType::agent, agentName, "configuration-refused", {}, "the configuration is refused: " + why },
      { { "error", why } } );
}

void Events::turnEnds() {
   if ( !running_ )
      return;
   if ( std::exchange( configurationChanged_, false ) ) {
      lookAtProfiles();
      units_.allChanged();
      interfaces_.allChanged();
   }
   units_.look();
   times_.look();
   interfaces_.look();
   hookEvents_.look( hooks_.now() );
   lookAtProblems();
}

void Events::lookAtProblems() {
   const double now = hooks_.now();
   if ( now < problemsTime_ + 1 && now >= problemsTime_ )
      return;
   problemsTime_ = now;
   std::map< std::string, std::string > present;
   for ( const auto & [what, text] : hooks_.problems() )
      present[what] += ( present[what].empty() ? "" : "; " ) + text;
   EventsTold & told = *model_.told;
   const auto mayTell = [&]( const std::string & what ) {
      Damper & damper = problemDampers_[what];
      if ( now < damper.notBefore() )
         return false;
      damper.told( now );
      return true;
   };
   std::vector< std::string > over;
   const bool allFound = now >= startTime_ + problemsFound;
   for ( const auto & [what, text] : told.problemRange() )
      if ( allFound && !present.count( what ) && mayTell( what ) )
         over.push_back( what );
   for ( const std::string & what : over ) {
      told.problemDel( what );
      writer_.write(
         { EventType::agent, agentName, "problem-end", {}, "the problem with \"" + what + "\" is over" },
         { { "problem", what } } );
      problemsNoted_.erase( what );
      hooks_.problemNoted( false, "the problem with \"" + what + "\" is over" );
   }
   for ( const auto & [what, text] : present ) {
      const Vel::String * const before = told.problem( what );
      if ( before && *before == text ) {
         noteProblem( what, text );
         continue;
      }
      if ( !mayTell( what ) )
         continue;
      noteProblem( what, text );
      told.problemIs( what, text );
      writer_.write(
         { EventType::agent, agentName, "problem-begin", {}, "a problem with \"" + what + "\": " + text },
         { { "problem", what } } );
   }
}

/// The log of each agent says what is wrong, also what an earlier one has told already.
void Events::noteProblem( const std::string & what, const std::string & text ) {
   if ( std::string & noted = problemsNoted_[what]; noted != text ) {
      noted = text;
      hooks_.problemNoted( true, "a problem with \"" + what + "\": " + text );
   }
}

void Events::linksLate( const std::string & unit, const std::set< std::string > & links ) {
   constexpr std::size_t mostNamed = 8; // all are in `interfaces`
   std::string names;
   std::size_t left = links.size();
   for ( const std::string & link : links ) {
      if ( links.size() - left == mostNamed ) {
         names += " and " + std::to_string( left ) + " more";
         break;
      }
      names += ( names.empty() ? "" : ", " ) + link;
      --left;
   }
   const std::string text =
      unit + " goes on with its way back, and not all of its links are back yet: " + names;
   writer_.write(
      { EventType::unit, unit, "links-late", { unit }, text, true }, { { "interfaces", links } } );
}

// ---- profiles

void Events::lookAtProfiles() {
   EventsTold & told = *model_.told;
   std::vector< std::string > gone;
   for ( const auto & [name, profile] : told.profileRange() )
      if ( !model_.intfProfileStatusDir->status( name ) )
         gone.push_back( name );
   for ( const auto & [name, profile] : model_.intfProfileStatusDir->statusRange() ) {
      const std::string contents = contentsOf( *profile );
      ToldProfile * const before = told.profile( name );
      if ( before && before->contents() == contents )
         continue;
      writer_.write(
         aboutProfile(
            name, before ? "edited" : "added",
            "profile " + name + ( before ? " has been edited: " : " is new: " ) + contents ),
         numbersOf( *profile ) );
      told.profileIs( name )->contentsIs( contents );
   }
   if ( const Vel::String name = model_.defaultIntfProfile->profileName(); name != told.defaultProfile() ) {
      told.defaultProfileIs( name );
      writer_.write( aboutProfile( name, "default", "profile " + name + " is the default now" ) );
   }
   for ( const std::string & name : gone ) {
      told.profileDel( name );
      writer_.write( aboutProfile( name, "removed", "profile " + name + " is gone" ) );
   }
}

} // namespace Agent
