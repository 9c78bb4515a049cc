#pragma once

#include "Agent/Model/StageCommand.h"

#include <string>
#include <string_view>
#include <vector>

/// Purpose: what commands need of the operating system: processes that are started, fed, listened to and ended.
namespace Agent {

/// Nothing waits. A child leads a session of its own, which all that it starts belongs to unless it leaves on purpose,
/// also what makes process groups of its own there; whatever of the session is left when the child itself has ended is
/// ended with it.
class Children {
 public:
   /// Chosen by the caller, each once.
   using Id = Vel::U64;
   enum class Stream { output, errors };

   struct Program {
      std::vector< std::string > words; ///< the first one is the absolute path
      /// All of it, "NAME=VALUE". The first one tells this start from all others that may run at the same time.
      std::vector< std::string > environment;
      std::string input; ///< what it reads from its standard input, then end of file
   };
   struct Held {
      Vel::String problem; ///< why there is no such process; empty: there is
      bool scarce = false; ///< the system has run out of something, and there may be one later
      ProcessId process;
   };
   struct Ending {
      int status = 0;    ///< of an exit
      int signal = 0;    ///< that has ended it; 0: it has exited
      bool known = true; ///< false: it has ended, and nobody can say how
   };
   /// Told in a turn, never inside a call of Children. What a child has said comes before its end.
   class Listener {
    public:
      virtual void childSays( Id id, Stream stream, std::string_view bytes ) = 0;
      /// Nothing of its session is left, and its id is unknown from now on.
      virtual void childEnded( Id id, const Ending & ending ) = 0;

    protected:
      ~Listener() = default;
   };

   virtual ~Children() = default;

   /// Makes a process in which the command has not begun. It ends by itself, having done nothing, if the agent does
   /// before go(). The listener outlives it or forget()s it.
   virtual Held hold( Id id, const Program & program, Listener & listener ) = 0;
   /// Lets the command begin. An id that is not known (any more) changes nothing, here and below.
   virtual void go( Id id ) = 0;
   /// Writes a line feed to its descriptor 3: what it has recorded is safe.
   virtual void kept( Id id ) = 0;
   /// Asks the whole session to end (SIGTERM).
   virtual void terminate( Id id ) = 0;
   /// Ends the whole session (SIGKILL).
   virtual void kill( Id id ) = 0;
   /// Ends all of this listener and tells it nothing more.
   virtual void forget( Listener & listener ) = 0;

   /// Ends (SIGKILL) what an earlier agent has left of a process: itself and all of its session.
   /// \param mark  the first member of its environment
   /// \return whether anything was left; ask again until nothing is
   virtual bool remnantsEnd( const ProcessId & process, const std::string & mark ) = 0;
};

} // namespace Agent
