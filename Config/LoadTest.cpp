#include "Config/ErrorRowsTest.h"
#include "Config/Files.h"

#include <map>

namespace {

/// Files in memory; a name with a reason instead of content cannot be read.
class MemoryFiles final : public Config::Files {
 public:
   Config::Parsed< std::string > read( const std::string & path ) override {
      const auto at = content.find( path );
      if ( at == content.end() )
         return Config::Parsed< std::string >::refused(
            "the file cannot be read: No such file or directory" );
      return Config::Parsed< std::string >::of( at->second );
   }
   Config::Parsed< std::vector< std::string > > list( const std::string & directory ) override {
      using Result = Config::Parsed< std::vector< std::string > >;
      if ( directory == unreadable )
         return Result::refused( "the file cannot be read: Permission denied" );
      std::vector< std::string > names;
      for ( auto at = content.rbegin(); at != content.rend(); ++at ) // not sorted, as with a real one
         if ( at->first.starts_with( directory + "/" ) )
            names.push_back( at->first.substr( directory.size() + 1 ) );
      return Result::of( names );
   }
   std::map< std::string, std::string > content;
   std::string unreadable;
};

struct Load : testing::Test {
   MemoryFiles files;
   Load() { files.content["/etc/m.yaml"] = good; }

   Config::Result load() { return Config::load( "/etc/m.yaml", files ); }
   std::vector< std::string > errors() { return textsOf( load() ); }
   using Texts = std::vector< std::string >;
};

TEST_F( Load, readsTheMainFileAlone ) {
   const Config::Result result = load();
   ASSERT_TRUE( result );
   EXPECT_EQ( Config::parse( good, "f" ).configuration, result.configuration );
}

TEST_F( Load, addsTheDropInsBesideTheMainFile ) {
   files.content["/etc/maintd.d/10-a.yaml"] = "groups: {a: {}}\n";
   files.content["/etc/maintd.d/20-b.yaml"] = "groups: {b: {}}\nunits: {u: {groups: [a, b]}}\n";
   const Config::Result result = load();
   ASSERT_EQ( Texts(), textsOf( result ) );
   EXPECT_EQ( 2u, result.configuration->groups.size() );
   EXPECT_EQ( ( std::set< std::string >{ "a", "b" } ), result.configuration->units.at( "u" ).groups );
}

TEST_F( Load, mergesMapsOnEveryLevel ) {
   files.content["/etc/maintd.d/a.yaml"] =
      "profiles: {p: {shutdown: true}, q: {threshold: 1bps, load-interval: 0s}}\n";
   const Config::Result result = load();
   ASSERT_EQ( Texts(), textsOf( result ) );
   EXPECT_TRUE( result.configuration->profiles.at( "p" ).shutdown );
   EXPECT_EQ( 1'000u, result.configuration->profiles.at( "p" ).threshold.bps() );
   EXPECT_EQ( 1u, result.configuration->profiles.at( "q" ).threshold.bps() );
}

TEST_F( Load, overridesNothing ) {
   files.content["/etc/maintd.d/a.yaml"] = "profiles: {p: {threshold: 2kbps}}\ngroups: {g: {vlans: [1]}}\n";
   files.content["/etc/maintd.d/b.yaml"] = "default-profile: p\ngroups: {g: {vlans: [2]}}\n";
   EXPECT_EQ(
      ( Texts{
         "/etc/maintd.d/a.yaml:1:16: error: duplicate key \"threshold\"; it is already at /etc/m.yaml:2:16",
         "/etc/maintd.d/b.yaml:1:1: error: duplicate key \"default-profile\"; it is already at "
         "/etc/m.yaml:3:1",
         "/etc/maintd.d/b.yaml:2:14: error: duplicate key \"vlans\"; it is already at "
         "/etc/maintd.d/a.yaml:2:14" } ),
      errors() );
}

TEST_F( Load, takesAMapAndSomethingElseUnderOneKeyForADuplicate ) {
   files.content["/etc/maintd.d/a.yaml"] = "profiles: []\n";
   EXPECT_EQ(
      Texts{
         "/etc/maintd.d/a.yaml:1:1: error: duplicate key \"profiles\"; it is already at /etc/m.yaml:2:1" },
      errors() );
}

TEST_F( Load, checksTheVersionOfEachFile ) {
   files.content["/etc/maintd.d/a.yaml"] = "version: 1\n";
   files.content["/etc/maintd.d/b.yaml"] = "version: 2\n";
   EXPECT_EQ(
      Texts{ "/etc/maintd.d/b.yaml:1:10: error: unknown version \"2\"; this program reads version 1" },
      errors() );
}

TEST_F( Load, acceptsAnEmptyDropIn ) {
   files.content["/etc/maintd.d/a.yaml"] = "# groups: {a: {}}\n";
   EXPECT_EQ( Texts(), errors() );
}

TEST_F( Load, leavesOutOtherNames ) {
   for ( const char * name : { "a.yaml~", "a.yml", ".a.yaml", ".yaml", "README" } )
      files.content[std::string( "/etc/maintd.d/" ) + name] = "wrong";
   EXPECT_EQ( Texts(), errors() );
}

TEST_F( Load, findsTheDropInsOfAFileInTheCurrentFolder ) {
   files.content["m.yaml"] = good;
   files.content["maintd.d/a.yaml"] = "x: y\n";
   const Texts texts = textsOf( Config::load( "m.yaml", files ) );
   ASSERT_EQ( 1u, texts.size() );
   EXPECT_TRUE( texts[0].starts_with( "maintd.d/a.yaml:1:1: error: unknown key \"x\"" ) ) << texts[0];
}

TEST_F( Load, reportsAMissingMainFileAndTheErrorsOfTheOthers ) {
   files.content.erase( "/etc/m.yaml" );
   files.content["/etc/maintd.d/a.yaml"] = "settle: 5\nunits: {u: {groups: [g]}}\n";
   EXPECT_EQ(
      ( Texts{
         "/etc/m.yaml: error: the file cannot be read: No such file or directory",
         "/etc/maintd.d/a.yaml:1:9: error: \"5\" has no unit; write 5s, 5m or 5h" } ),
      errors() );
}

TEST_F( Load, reportsAFolderOfDropInsThatCannotBeRead ) {
   files.unreadable = "/etc/maintd.d";
   EXPECT_EQ( Texts{ "/etc/maintd.d: error: the file cannot be read: Permission denied" }, errors() );
}

TEST_F( Load, doesNotMissWhatAFileThatIsNoYamlMayHold ) {
   files.content["/etc/m.yaml"] = "version: 1\nunits: {u: {groups: [g]}}\nx: y\n";
   files.content["/etc/maintd.d/a.yaml"] = "groups: {g: {}\n";
   files.content["/etc/maintd.d/b.yaml"] = "- a\n";
   const Texts texts = errors();
   ASSERT_EQ( 3u, texts.size() );
   EXPECT_TRUE( texts[0].starts_with( "/etc/m.yaml:3:1: error: unknown key \"x\"" ) ) << texts[0];
   EXPECT_EQ(
      "/etc/maintd.d/a.yaml:2:1: error: the map at /etc/maintd.d/a.yaml:1:9 is not closed; expected \",\" or "
      "\"}\" "
      "here",
      texts[1] );
   EXPECT_EQ( "/etc/maintd.d/b.yaml:1:1: error: a configuration is a map of keys and values", texts[2] );
}

TEST_F( Load, refusesAFileThatIsTooLarge ) {
   files.content["/etc/m.yaml"] = good + std::string( Config::maxFileSize - good.size(), '\n' );
   EXPECT_EQ( Texts(), errors() );
   files.content["/etc/m.yaml"].append( 1, '\n' );
   EXPECT_EQ( Texts{ "/etc/m.yaml: error: the file is larger than 1048576 bytes" }, errors() );
}

} // namespace
