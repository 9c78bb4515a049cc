#pragma once

#include "Agent/Commands/Children.h"
#include "Platform/Cog/EventLoop.h"

#include <map>
#include <memory>
#include <set>
#include <sys/types.h>
#include <vector>

/// Purpose: children as processes of the kernel.
/// Owner: the agent, one. From then on the process gets no SIGPIPE: a child may end before it has read its input. SIGCHLD
/// is not ignored, so that a child that has ended keeps its number until it is collected here.
namespace Agent {

class RealChildren final : public Children {
 public:
   /// Throws InternalException with the system's reason when it has no descriptor left.
   explicit RealChildren( Vel::Ptr< Cog::EventLoop > loop );
   ~RealChildren() override;
   RealChildren( const RealChildren & ) = delete;
   RealChildren & operator=( const RealChildren & ) = delete;

   Held hold( Id id, const Program & program, Listener & listener ) override;
   void go( Id id ) override;
   void kept( Id id ) override;
   void terminate( Id id ) override;
   void kill( Id id ) override;
   void forget( Listener & listener ) override;
   bool remnantsEnd( const ProcessId & process, const std::string & mark ) override;

 private:
   struct Child;
   using Made = std::map< Id, std::unique_ptr< Child > >;

   void watch( Id id, Child & child );
   void handleReadable( Id id, Stream stream );
   void handleInput( Id id );
   void handleEnd( Id id );
   void handleOthers( Id id );
   /// At one that nobody tells of, a little later. Takes no descriptor, for there may be none left.
   void lookAgain( Id id );
   void handleLook();
   /// False: it has ended and cannot be collected yet.
   bool collect( Child & child, Ending & ending );
   void droppedCollect();
   void finish( Id id, const Ending & ending );
   void drop( Child & child );
   /// Whether the descriptor has come to its end.
   static bool readSome( int descriptor, std::string & bytes );

   Vel::Ptr< Cog::EventLoop > loop_;
   Made children_;
   std::vector< pid_t > dropped_; ///< ended by force, and not collected
   /// Goes off when those in `looking_` are to be looked at. In the kernel's time: the agent's may be virtual, and
   /// processes are not.
   int lookTimer_;
   std::set< Id > looking_;
};

} // namespace Agent
