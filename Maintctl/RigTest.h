#pragma once

#include "Maintctl/DisplayRigTest.h"
#include "Maintctl/Run.h"

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// Purpose: runs whole command lines against an agent, a time and files that a test makes up.
namespace Maintctl {

/// Answers what the test has laid down for `GET PATH` or `POST PATH`, in turn; the last answer stays.
class FakeClient final : public Client {
 public:
   Reply send( const Request & request ) override;

   /// What was laid down for `GET PATH`, byte by byte and once, then it ends; nothing laid down: the operator presses
   /// Ctrl-C.
   Reply stream( const std::string & path, const std::function< void( std::string_view ) > & take ) override;

   void answers( const std::string & request, std::string body, int status = 200 );
   /// Forgets what was laid down before.
   void replaces( const std::string & request, std::string body );
   /// The shape of a refusal.
   void refuses(
      const std::string & request, int status, const std::string & code, const std::string & message,
      const std::string & where );
   /// No answer from now on, or answers again.
   void reachableIs( bool reachable ) { reachable_ = reachable; }
   /// It takes a while to answer the next request; this happens meanwhile.
   void during( std::function< void() > happens ) { during_ = std::move( happens ); }
   /// From the next request on whose path has this part, it takes requests and answers none: `waits` is told how long
   /// whoever asks has waited for nothing.
   void hangsFrom( std::string part, std::function< void( unsigned seconds ) > waits ) {
      hangsFrom_ = std::move( part );
      waits_ = std::move( waits );
   }
   /// The operator presses Ctrl-C during the next request.
   void interruptNext() { interrupted_ = true; }

   /// `GET PATH` and `POST PATH BODY`, in the order asked. Looking at the agent's clock is left out.
   std::vector< std::string > requests;
   unsigned patience = 0; ///< seconds that the last request would have waited

 private:
   std::map< std::string, std::deque< Reply > > answers_;
   std::function< void() > during_;
   std::function< void( unsigned ) > waits_; ///< empty: it does not hang
   std::optional< std::string > hangsFrom_;  ///< nothing: it has begun to hang
   bool reachable_ = true, interrupted_ = false;
};

/// Time that passes only while somebody waits.
class FakePace final : public Pace {
 public:
   double now() override { return now_; }
   bool sleep( double seconds ) override;

   /// Runs the action once, when the time has come.
   void at( double time, std::function< void() > action ) { actions_.emplace( time, std::move( action ) ); }
   void interruptAt( double time ) { interrupt_ = time; }

 private:
   double now_ = 0, interrupt_ = 1e9;
   std::multimap< double, std::function< void() > > actions_;
};

class FakeFiles final : public Config::Files {
 public:
   Config::Parsed< std::string > read( const std::string & path ) override;
   Config::Parsed< std::vector< std::string > > list( const std::string & directory ) override;

   std::map< std::string, std::string > content; ///< by path
};

struct Rig {
   /// One command line from its words to its end.
   ExitStatus run( const std::vector< std::string > & words );

   FakeClient client;
   FakePace pace;
   FakeFiles files;
   /// No terminals unless the test says that they can draw.
   FakeDisplay data, messages;
   std::string out, err;          ///< of the last run
   std::string session;           ///< from where the operator comes
   std::string sessionNote;       ///< why he had better say it himself
   bool severalDocuments = false; ///< JSON may be one document a line
};

bool isJson( const std::string & text );
/// The value at a JSON pointer such as `/error/code`, as JSON text without blanks; empty if there is none.
std::string at( const std::string & json, const std::string & pointer );
std::vector< std::string > linesOf( const std::string & text );

} // namespace Maintctl
