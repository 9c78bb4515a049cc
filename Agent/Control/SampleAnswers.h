#pragma once

#include "Agent/Control/ControlModel.h"
#include "Agent/Control/HttpServer.h"

#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>

/// Purpose: the answers to what interfaces have carried.
/// Owner: the control API.
///
/// An answer may need thousands of files. They are read in turns of their own, a few in each, however many ask: who asks
/// takes turns with the others, as many as `atATime` of them: answers that are not whole yet need memory. A turn reads no
/// more than `filesPerTurn` files and `stepsPerTurn` steps, or one file.
namespace Agent {

class SampleAnswers {
 public:
   using Query = std::multimap< std::string, std::string >;

   /// What all interfaces of one answer may have together, in steps; a request for more is refused.
   static constexpr std::size_t mostSamples = 150000;
   static constexpr std::size_t filesPerTurn = 64, stepsPerTurn = 20000;
   static constexpr std::size_t atATime = 8;

   /// Both are the caller's and outlive this object.
   SampleAnswers( const ControlModel & model, const ControlCommands & commands );
   ~SampleAnswers();
   SampleAnswers( const SampleAnswers & ) = delete;
   SampleAnswers & operator=( const SampleAnswers & ) = delete;

   /// Answers in a later turn with `{"step-seconds", "start", "interfaces": {NAME: {"in-bps": [...], "out-bps": [...]}}}`,
   /// null where nothing is known. `query`: `interface` (any number of them) or `unit`, `last` (seconds or a time as in
   /// the configuration, an hour if it is missing), `until` (a time, now if it is missing or yet to come). Throws
   /// Api::Error: bad request for arguments that make no sense or ask for too much, not found for names that are not
   /// there, unavailable if nobody samples.
   /// `local`: over the local socket.
   void ask( const Query & query, bool local, HttpServer::Answer answer );

 private:
   /// An answer that is being put together.
   struct Asked {
      SampleSteps steps;
      std::set< std::string > names; ///< that have yet to be read
      HttpServer::Answer answer;
      std::string text;
   };
   void workSoon();
   void work();
   void readOne( Asked & asked ) const;

   const ControlModel & model_;
   const ControlCommands & commands_;
   std::deque< Asked > local_, web_;
   bool working_ = false; ///< a turn for it is to come
   std::shared_ptr< SampleAnswers * >
      self_; ///< shared with what is called back, which may outlive this object
};

} // namespace Agent
