#include "Config/Command.h"

#include <gtest/gtest.h>

namespace {

using Config::Command;
using Words = std::vector< std::string >;

TEST( Command, isSplitIntoWordsAsByAShell ) {
   const std::vector< std::pair< std::string, Words > > rows{
      { "/bin/true", { "/bin/true" } },
      { "  /bin/a \t b\n  c ", { "/bin/a", "b", "c" } },
      { "/bin/a 'b c' d'e'f", { "/bin/a", "b c", "def" } },
      { R"(/bin/a "b c" "d'e" "f\"g" "h\\i" "j\k" "\$x")",
        { "/bin/a", "b c", "d'e", "f\"g", "h\\i", "j\\k", "$x" } },
      { R"(/bin/a b\ c \'d \$e \\)", { "/bin/a", "b c", "'d", "$e", "\\" } },
      { "/bin/a '' \"\"", { "/bin/a", "", "" } },
      { "/bin/sh -c 'echo $HOME | cat > /dev/null; exit 3'",
        { "/bin/sh", "-c", "echo $HOME | cat > /dev/null; exit 3" } },
      { "/bin/a # {b} ~ [c] ! d=e", { "/bin/a", "#", "{b}", "~", "[c]", "!", "d=e" } },
      { "'/opt/my tools/a' b", { "/opt/my tools/a", "b" } } };
   for ( const auto & [line, words] : rows ) {
      SCOPED_TRACE( line );
      const auto command = Command::parse( line );
      ASSERT_TRUE( command ) << command.error;
      EXPECT_EQ( words, command.value->words() );
      const auto again = Command::parse( command.value->text() );
      ASSERT_TRUE( again ) << again.error;
      EXPECT_EQ( words, again.value->words() );
   }
}

TEST( Command, saysWhatIsWrongAndWhatToWriteInstead ) {
   const std::string shell =
      ", and no shell runs a command; put it in '...' if it is text, or write /bin/sh -c '...'";
   const std::vector< std::pair< std::string, std::string > > rows{
      { "", "command \"\" is empty; leave the key out if there is nothing to do" },
      { " \t", "command \" \\t\" is empty; leave the key out if there is nothing to do" },
      { "steer enter", "command \"steer enter\" begins with \"steer\", which is no absolute path; write "
                       "where the program is, for "
                       "example /usr/local/sbin/steer" },
      { "'' a", "command \"'' a\" begins with \"\", which is no absolute path; write where the program is, "
                "for example "
                "/usr/local/sbin/steer" },
      { "/bin/a | /bin/b", "command \"/bin/a | /bin/b\" has |" + shell },
      { "/bin/a > /b", "command \"/bin/a > /b\" has >" + shell },
      { "/bin/a $B", "command \"/bin/a $B\" has $" + shell },
      { "/bin/a \"$B\"", "command \"/bin/a \\\"$B\\\"\" has $" + shell },
      { "/bin/a *", "command \"/bin/a *\" has *" + shell },
      { "/bin/a 'b", "command \"/bin/a 'b\" has a ' that is not closed" },
      { "/bin/a \"b", "command \"/bin/a \\\"b\" has a \" that is not closed" },
      { "/bin/a \\", "command \"/bin/a \\\\\" ends with a backslash; write \\\\ if it is text" },
      { std::string( "/bin/a 'b\0'", 11 ), "command \"/bin/a 'b\\x00'\" has a control character" },
      { "/bin/a 'b\nc'", "command \"/bin/a 'b\\nc'\" has a control character" } };
   for ( const auto & [line, error] : rows ) {
      SCOPED_TRACE( line );
      const auto command = Command::parse( line );
      EXPECT_FALSE( command );
      EXPECT_EQ( error, command.error );
   }
}

TEST( Command, thatIsNoneIsEmpty ) {
   EXPECT_TRUE( Command().empty() );
   EXPECT_EQ( "", Command().text() );
}

} // namespace
