#pragma once

#include "Platform/Cog/Scheduler.h"
#include "Platform/Cog/TurnTimes.h"

#include <exception>
#include <map>
#include <memory>

/// Purpose: the loop of a program with one thread: waits for descriptors, tasks and times, and runs a turn of the
/// scheduler each time one of them has come.
namespace Cog {

/// The handlers of ready descriptors are what a turn brings in first. A descriptor that is ready stays so until its
/// handler has read or written: what a turn does not get to is brought in by the next.
class EventLoop final : public Scheduler {
 public:
   /// What a descriptor may be ready for, combined by or. `failed` (error or hang-up) is always reported.
   enum : Vel::U32 { readable = 1, writable = 2, failed = 4 };
   /// Takes what the descriptor is ready for. May add, change and remove any descriptor, its own included.
   using DescriptorHandler = std::function< void( Vel::U32 events ) >;
   /// Takes an exception that nobody has caught.
   using EscapedHook = std::function< void( const std::exception_ptr & exception ) >;

   /// Throws InternalException when the system has no more descriptors, RangeError without a time source.
   explicit EventLoop( Vel::Ptr< TimeSource > time );
   ~EventLoop() override;

   /// Watches a descriptor, which stays the caller's, or replaces interest and handler of one that is watched.
   /// Throws InternalException with the system's reason if it cannot be watched (a regular file, a closed one).
   void descriptorIs( int descriptor, Vel::U32 interest, DescriptorHandler handler );
   /// Changes what a watched descriptor is watched for; 0: failures only.
   void descriptorInterestIs( int descriptor, Vel::U32 interest );
   /// Stops watching; its handler is not called any more, also if it is ready already. Call it before closing the
   /// descriptor. False if it is not watched.
   bool descriptorDel( int descriptor );

   /// Runs turns until stop(). An exception that nobody catches is handed to the hook, ends the loop before its
   /// turn is committed, and is thrown again.
   void run();
   /// Makes run() return when the present turn is done, effects included; called outside of it, at once.
   void stop() { stopped_ = true; }
   /// Reports an escaped exception before run() throws it again.
   void escapedHookIs( EscapedHook hook ) { escapedHook_ = std::move( hook ); }
   /// Of the turns that run() has done.
   const TurnTimes & turnTimes() const { return turnTimes_; }

 private:
   struct Watched {
      Vel::U32 generation; ///< tells it from an earlier one with the same number
      DescriptorHandler handler;
   };
   struct Ready {
      int descriptor;
      Vel::U32 generation;
      Vel::U32 events;
   };

   void wait();
   void bringIn() override;
   void control( int operation, int descriptor, Vel::U32 interest, Vel::U32 generation );

   int epoll_;
   std::map< int, std::shared_ptr< Watched > > watched_;
   std::vector< Ready > ready_;
   EscapedHook escapedHook_;
   TurnTimes turnTimes_;
   Vel::U32 generation_ = 0;
   bool stopped_ = false;
};

} // namespace Cog
