#include "Config/Yaml.h"

#include "Config/InQuotes.h"
#include "Config/Source.h"
#include "Config/Utf8.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <istream>
#include <streambuf>
#include <unordered_map>

namespace Config {

namespace {

/// Ends reading from inside the parser; what is wrong has been reported.
struct Stop {};

/// A stream that reads text where it is.
class ViewBuffer final : public std::streambuf {
 public:
   explicit ViewBuffer( std::string_view text ) {
      char * const begin = const_cast< char * >( text.data() ); // read only
      setg( begin, begin, begin + text.size() );
   }
};

/// Builds the tree from what the parser reports.
class Builder final : public YAML::EventHandler {
 public:
   Builder( Source & source, Diagnostics & diagnostics ) : source_( source ), diagnostics_( diagnostics ) {}

   Node && take() { return std::move( root_ ); }
   /// The map or list that is not complete; null if there is none.
   const Node * open() const { return stack_.empty() ? nullptr : &stack_.back().node; }
   /// \note the parser counts columns in bytes.
   Place place( const YAML::Mark & mark ) {
      return source_.place( static_cast< std::size_t >( mark.line ), static_cast< std::size_t >( mark.pos ) );
   }
   std::string_view textAt( const YAML::Mark & mark ) const {
      return source_.from( static_cast< std::size_t >( mark.pos ) );
   }

 private:
   /// A map or list under construction.
   struct Level {
      Node node;
      Node key; ///< of a map: the one that waits for its value
      bool keyWaits = false;
      std::unordered_map< std::string, Place > keys;
   };

   void OnDocumentStart( const YAML::Mark & mark ) override;
   void OnDocumentEnd() override {}
   void OnNull( const YAML::Mark & mark, YAML::anchor_t anchor ) override;
   void OnAlias( const YAML::Mark & mark, YAML::anchor_t anchor ) override;
   void OnScalar(
      const YAML::Mark & mark, const std::string & tag, YAML::anchor_t anchor,
      const std::string & value ) override;
   void OnSequenceStart(
      const YAML::Mark & mark, const std::string & tag, YAML::anchor_t anchor,
      YAML::EmitterStyle::value ) override {
      begin( Node::Kind::list, mark, tag, anchor );
   }
   void OnSequenceEnd() override { end(); }
   void OnMapStart(
      const YAML::Mark & mark, const std::string & tag, YAML::anchor_t anchor,
      YAML::EmitterStyle::value ) override {
      begin( Node::Kind::map, mark, tag, anchor );
   }
   void OnMapEnd() override { end(); }

   Node make( Node::Kind kind, const YAML::Mark & mark, const std::string & tag, YAML::anchor_t anchor );
   void begin( Node::Kind kind, const YAML::Mark & mark, const std::string & tag, YAML::anchor_t anchor );
   void end();
   void add( Node && node );
   void checkKey( Node & key );
   void checkQuotes( Place place, std::string_view text );
   void checkCharacters( Node & node );

   Source & source_;
   Diagnostics & diagnostics_;
   Node root_;
   std::vector< Level > stack_;
   bool started_ = false;
};

void Builder::OnDocumentStart( const YAML::Mark & mark ) {
   if ( started_ ) {
      const bool marker = textAt( mark ).starts_with( "---" );
      diagnostics_.error(
         place( mark ), marker ? "a second document; one file holds one"
                               : "unexpected text behind the end of the document" );
      throw Stop();
   }
   started_ = true;
}

void Builder::OnNull( const YAML::Mark & mark, YAML::anchor_t anchor ) {
   add( make( Node::Kind::none, mark, {}, anchor ) );
}

void Builder::OnAlias( const YAML::Mark & mark, YAML::anchor_t ) {
   Node node = make( Node::Kind::refused, mark, {}, 0 );
   diagnostics_.error( node.place, "aliases are not allowed; write the value out" );
   add( std::move( node ) );
}

void Builder::OnScalar(
   const YAML::Mark & mark, const std::string & tag, YAML::anchor_t anchor, const std::string & value ) {
   Node node = make( Node::Kind::scalar, mark, tag, anchor );
   node.text = value;
   node.plain = tag == "?";
   if ( tag == "!" && anchor == 0 )
      checkQuotes( node.place, textAt( mark ) );
   checkCharacters( node );
   add( std::move( node ) );
}

/// An escape can say what may not stand in a file, and what the parser makes of some is not even text. What is accepted
/// is written down as it is, for the next start to read.
void Builder::checkCharacters( Node & node ) {
   if ( diagnostics_.acceptedBefore() )
      return;
   const auto refuse = [&]( const std::string & what ) {
      diagnostics_.error( node.place, inQuotes( node.text ) + what );
      node.kind = Node::Kind::refused;
   };
   for ( std::size_t at = 0; at < node.text.size(); ) {
      const Character character = Character::at( node.text, at );
      if ( character.size == 0 )
         return refuse(
            " has byte 0x" + hex( static_cast< unsigned char >( node.text[at] ) ) +
            ", which is not UTF-8 text" );
      if ( character.isControl() && character.code >= 0x80 )
         return refuse( " has control character 0x" + hex( character.code ) + ", which is not allowed" );
      at += character.size;
   }
}

/// The parser takes the end of the file for a closing quote.
void Builder::checkQuotes( Place place, std::string_view text ) {
   if ( text.empty() || ( text[0] != '"' && text[0] != '\'' ) )
      return;
   const char quote = text[0];
   for ( std::size_t at = 1; at < text.size(); ++at ) {
      if ( quote == '"' && text[at] == '\\' )
         ++at;
      else if ( quote == '\'' && text.substr( at, 2 ) == "''" )
         ++at;
      else if ( text[at] == quote )
         return;
   }
   diagnostics_.error( place, "the quote that opens here is not closed" );
   throw Stop();
}

Node Builder::make(
   Node::Kind kind, const YAML::Mark & mark, const std::string & tag, YAML::anchor_t anchor ) {
   Node node;
   node.kind = kind;
   node.place = place( mark );
   if ( anchor != 0 )
      diagnostics_.error( node.place, "anchors are not allowed" );
   if ( !tag.empty() && tag != "?" && tag != "!" )
      diagnostics_.error( node.place, "tags are not allowed" );
   return node;
}

void Builder::begin(
   Node::Kind kind, const YAML::Mark & mark, const std::string & tag, YAML::anchor_t anchor ) {
   Level level;
   level.node = make( kind, mark, tag, anchor );
   if ( stack_.size() == maxDepth ) {
      diagnostics_.error(
         level.node.place, "nested more than " + std::to_string( maxDepth ) + " levels deep" );
      throw Stop();
   }
   stack_.push_back( std::move( level ) );
}

void Builder::end() {
   Node node = std::move( stack_.back().node );
   stack_.pop_back();
   add( std::move( node ) );
}

void Builder::add( Node && node ) {
   if ( stack_.empty() ) {
      root_ = std::move( node );
      return;
   }
   Level & level = stack_.back();
   if ( level.node.kind != Node::Kind::map ) {
      level.node.children.push_back( std::move( node ) );
   } else if ( !level.keyWaits ) {
      checkKey( node );
      level.key = std::move( node );
      level.keyWaits = true;
   } else {
      level.keyWaits = false;
      if ( level.key.kind == Node::Kind::refused )
         return;
      node.key = std::move( level.key.text );
      node.keyPlace = level.key.place;
      level.node.children.push_back( std::move( node ) );
   }
}

void Builder::checkKey( Node & key ) {
   const auto refuse = [&]( const std::string & message ) {
      if ( key.kind != Node::Kind::refused )
         diagnostics_.error( key.place, message );
      key.kind = Node::Kind::refused;
   };
   if ( key.kind == Node::Kind::none )
      refuse( "a key is missing here, or is \"null\" or \"~\"" );
   else if ( key.kind != Node::Kind::scalar )
      refuse( "a key must be text" );
   else if ( key.plain && key.text == "<<" )
      refuse( "merge keys are not allowed" );
   if ( key.kind == Node::Kind::refused )
      return;
   const auto [first, isNew] = stack_.back().keys.emplace( key.text, key.place );
   if ( !isNew )
      refuse(
         "duplicate key " + inQuotes( key.text ) + "; it is already at " +
         diagnostics_.text( first->second ) );
}

/// What the parser says, in words that help.
/// \param here  the text where it says so
/// \param open  the map or list that is open there; null if there is none
std::string explain(
   const YAML::Exception & exception, std::string_view here, const Node * open,
   const Diagnostics & diagnostics ) {
   const auto is = [&]( const char * message ) { return exception.msg == message; };
   const auto notClosed = [&]( const char * what, const char * expected ) {
      return std::string( what ) + ( open ? " at " + diagnostics.text( open->place ) : std::string() ) + " " +
             expected;
   };
   if ( is( YAML::ErrorMsg::UNKNOWN_ANCHOR ) || is( YAML::ErrorMsg::ALIAS_CONTENT ) )
      return "aliases are not allowed; write the value out";
   if ( is( YAML::ErrorMsg::MULTIPLE_ANCHORS ) )
      return "anchors are not allowed";
   if ( is( YAML::ErrorMsg::MULTIPLE_TAGS ) )
      return "tags are not allowed";
   if ( is( YAML::ErrorMsg::MAP_VALUE ) || is( YAML::ErrorMsg::MAP_KEY ) )
      return "unexpected \":\"; is the indentation wrong, a \":\" missing in the line above, or text with "
             "\": \" in it "
             "not in quotes?";
   if ( is( YAML::ErrorMsg::BLOCK_ENTRY ) )
      return "unexpected \"-\"; a list that is written with dashes begins on its own line";
   if ( is( YAML::ErrorMsg::FLOW_END ) )
      return "unexpected " + inQuotes( here.substr( 0, 1 ) ) + "; it does not match what is open here";
   if ( is( YAML::ErrorMsg::UNKNOWN_TOKEN ) )
      return "text that begins with " + inQuotes( here.substr( 0, 1 ) ) + " must be in quotes";
   if ( is( YAML::ErrorMsg::END_OF_MAP_FLOW ) )
      return notClosed( "the map", "is not closed; expected \",\" or \"}\" here" );
   if ( is( YAML::ErrorMsg::END_OF_SEQ_FLOW ) )
      return notClosed( "the list", "is not closed; expected \",\" or \"]\" here" );
   if ( is( YAML::ErrorMsg::END_OF_MAP ) )
      return notClosed( "the map", "cannot go on like this; is the indentation wrong, or a \":\" missing?" );
   if ( is( YAML::ErrorMsg::END_OF_SEQ ) )
      return notClosed( "the list", "cannot go on like this; is the indentation wrong, or a \"-\" missing?" );
   if ( exception.msg.starts_with(
           YAML::ErrorMsg::INVALID_ESCAPE ) ) // names a byte, which need not be a character
      return "unknown escape in quoted text";
   if ( exception.msg.starts_with(
           YAML::ErrorMsg::INVALID_UNICODE ) ) // with a number that nobody has written
      return "the escape is no character";
   return exception.msg;
}

} // namespace

std::optional< Node > readYaml( std::string_view text, unsigned file, Diagnostics & diagnostics ) {
   Source source( text, file );
   if ( source.check( diagnostics ) ) {
      Builder builder( source, diagnostics );
      try {
         ViewBuffer buffer( source.text() );
         std::istream stream( &buffer );
         YAML::Parser parser( stream );
         while ( parser.HandleNextDocument( builder ) ) {
         }
         return builder.take();
      } catch ( const Stop & ) {
      } catch ( const YAML::Exception & exception ) {
         const YAML::Mark mark = exception.mark.is_null() ? YAML::Mark() : exception.mark;
         diagnostics.error(
            builder.place( mark ),
            explain( exception, builder.textAt( mark ), builder.open(), diagnostics ) );
      }
   }
   diagnostics.contentMissing();
   return std::nullopt;
}

void merge( Node & into, Node && from, Diagnostics & diagnostics ) {
   std::unordered_map< std::string, std::size_t > known;
   for ( std::size_t i = 0; i < into.children.size(); ++i )
      known.emplace( into.children[i].key, i );
   for ( Node & child : from.children ) {
      const auto at = known.find( child.key );
      if ( at == known.end() ) {
         into.children.push_back( std::move( child ) );
         continue;
      }
      Node & other = into.children[at->second];
      if ( other.kind == Node::Kind::map && child.kind == Node::Kind::map )
         merge( other, std::move( child ), diagnostics );
      else
         diagnostics.error(
            child.keyPlace, "duplicate key " + inQuotes( child.key ) + "; it is already at " +
                               diagnostics.text( other.keyPlace ) );
   }
}

} // namespace Config
