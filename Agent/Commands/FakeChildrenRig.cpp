#include "Agent/Commands/FakeChildrenRig.h"

#include <stdexcept>
#include <utility>

namespace Agent {

FakeChildren::Child & FakeChildren::last() {
   if ( all_.empty() )
      throw std::logic_error( "no child was made" );
   return all_.back();
}

unsigned FakeChildren::running() const {
   unsigned count = 0;
   for ( const Child & child : all_ )
      count += child.phase == Phase::going;
   return count;
}

std::vector< std::string > FakeChildren::taken() { return std::exchange( notes_, {} ); }

FakeChildren::Child * FakeChildren::of( Id id ) {
   for ( Child & child : all_ )
      if ( child.id == id && child.listener && child.phase != Phase::ended )
         return &child;
   return nullptr;
}

void FakeChildren::says( Child & child, const std::string & text, Stream stream ) const {
   if ( child.listener && child.phase == Phase::going )
      child.listener->childSays( child.id, stream, text );
}

void FakeChildren::ends( Child & child, int status, int signal ) const {
   if ( child.phase == Phase::ended )
      return;
   child.phase = Phase::ended;
   if ( child.listener )
      child.listener->childEnded( child.id, { status, signal } );
}

Children::Held FakeChildren::hold( Id id, const Program & program, Listener & listener ) {
   if ( !problem_.empty() )
      return { problem_, scarce_, {} };
   Child & child = all_.emplace_back();
   child.id = id;
   child.program = program;
   child.listener = &listener;
   child.process = { ++lastPid_, lastPid_ * 10, "here" };
   return { "", false, child.process };
}

void FakeChildren::note(
   const std::string & what, const std::function< void( Child & ) > & then, Child & child ) {
   notes_.push_back( what );
   if ( then )
      then( child );
}

void FakeChildren::go( Id id ) {
   Child * const child = of( id );
   if ( !child || child->phase != Phase::held )
      return;
   child->phase = Phase::going;
   std::string command;
   for ( const std::string & word : child->program.words )
      command += " " + word;
   note( "begins" + command, onGo, *child );
}

void FakeChildren::kept( Id id ) {
   if ( Child * const child = of( id ) ) {
      ++child->kept;
      note( "is safe", onKept, *child );
   }
}

void FakeChildren::terminate( Id id ) {
   if ( Child * const child = of( id ) ) {
      child->terminated = true;
      note( "is asked to end", onTerminate, *child );
   }
}

void FakeChildren::kill( Id id ) {
   if ( Child * const child = of( id ) ) {
      child->killed = true;
      note( "is ended by force", onKill, *child );
   }
}

void FakeChildren::forget( Listener & listener ) {
   for ( Child & child : all_ )
      if ( child.listener == &listener ) {
         child.listener = nullptr;
         child.phase = Phase::ended;
      }
}

bool FakeChildren::remnantsEnd( const ProcessId & process, const std::string & mark ) {
   notes_.push_back( "remnants of " + std::to_string( process.pid ) + ", " + mark );
   return remnants_ != 0 && remnants_-- != 0;
}

} // namespace Agent
