#pragma once

#include "DataPlane/Linux/Kernel.h"

namespace DataPlane::Linux {

/// How a dump ended.
struct DumpOutcome {
   Outcome outcome; ///< if it failed: the reason, as "what: why"
   int code = 0;    ///< if the kernel refused it: its errno value
   bool interrupted =
      false; ///< complete, but what was dumped has changed meanwhile: parts may be missing or double
};

/// Asks for a dump and takes all of its answer, at once: the kernel produces it while it is read. `handle` is called for
/// each message of the answer. `what` names it in errors, for example "links". The channel must have nothing else to do.
DumpOutcome dump(
   Channel & channel, Bytes request, const char * what,
   const std::function< void( const nlmsghdr & ) > & handle );

/// Asks for one thing and takes the answer, at once. The rest as for dump().
DumpOutcome lookUp(
   Channel & channel, Bytes request, const char * what,
   const std::function< void( const nlmsghdr & ) > & handle );

/// A channel for dumps and look-ups only. It is opened when it is needed, and anew after a dump that has failed, because the rest of
/// that may still be on its way.
class Dumps {
 public:
   /// The kernel outlives it.
   explicit Dumps( Kernel & kernel ) : kernel_( kernel ) {}

   /// Dumps until nothing has changed meanwhile; before each try `begin` is called, to forget what was gathered. Fails
   /// if something has each time.
   Outcome whole(
      const Bytes & request, const char * what, const std::function< void() > & begin,
      const std::function< void( const nlmsghdr & ) > & handle );
   /// The same for what the kernel does not mark when it has changed meanwhile: also dumps again until two dumps in a row
   /// have given the same, which `same` is asked; a dump of nothing is not repeated, for it has been one step.
   Outcome agreed(
      const Bytes & request, const char * what, const std::function< void() > & begin,
      const std::function< void( const nlmsghdr & ) > & handle, const std::function< bool() > & same );
   /// Asks for one thing.
   Outcome
   one( const Bytes & request, const char * what, const std::function< void( const nlmsghdr & ) > & handle );
   /// With which errno value the kernel refused the last one; 0: it did not.
   int code() const { return code_; }
   void close() { channel_.reset(); }

 private:
   static constexpr int maxTries = 5;

   Outcome open( const char * what );
   Outcome repeat(
      const Bytes & request, const char * what, const std::function< void() > & begin,
      const std::function< void( const nlmsghdr & ) > & handle, const std::function< bool() > & enough );

   Kernel & kernel_;
   std::unique_ptr< Channel > channel_;
   int code_ = 0;
};

/// An error message of the kernel: 0 in `code` is an acknowledgement.
struct KernelAnswer {
   int code = 0;     ///< an errno value
   Vel::String text; ///< the system's text, and the kernel's own if it gave one
};
/// Absent if the message is no whole error message.
std::optional< KernelAnswer > parseAnswer( const nlmsghdr & message );
/// The errno value of what the kernel tells as a result, which is below 0 if something has failed; 0: it went well.
int errnoOf( int told );
/// The same of the message that ends a dump.
int endOf( const nlmsghdr & done );

} // namespace DataPlane::Linux
