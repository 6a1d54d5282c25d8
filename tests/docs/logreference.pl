#!/usr/bin/perl
# SPDX-License-Identifier: LGPL-2.1-or-later
# usage: logreference.pl DOCUMENT SOURCE...
# Each text that the sources log, and each other text of several words in them, stands in a row of a table in the
# document, and beside it the level at which it is written. Prints what does not, and how many texts there are.
use strict;
use warnings;

my ($document, @sources) = @ARGV;

sub content {
    open(my $file, '<', $_[0]) or die "$_[0]: $!\n";
    local $/;
    return <$file>;
}

my @rows = grep { /^\|/ } split /\n/, content($document);
my ($texts, $wrong) = (0, 0);

# check(SOURCE, LEVEL, LITERAL): the words between the places that are filled in.
sub check {
    my ($source, $level, $literal) = @_;
    for my $text (map { s/^\s+|\s+$//gr } split /%\d\d?|\\n/, $literal) {
        next unless $text =~ /[A-Za-z]{3}/;
        ++$texts;
        my @found = grep { index($_, $text) >= 0 } @rows;
        next if grep { $_ =~ /\| *[^|]*\b$level\b/ } @found;
        ++$wrong;
        print "$source: ", @found ? "not of level $level in $document" : "not in $document", ": $text\n";
    }
}

my $literal = qr/"((?:[^"\\]|\\.)*)"/;
my $arguments = qr/(\((?:[^()"]|"(?:[^"\\]|\\.)*"|(?-1))*\))/;
for my $source (@sources) {
    my $code = content($source);
    $code =~ s/^\s*#.*$//mg;
    $code =~ s{(?<!:)//[^\n]*}{}g;
    $code =~ s/"\s*"//g; # one text in two pieces
    $code =~ s{(?:Log::(?:module|guard|trace|plain)|m_log->write|ogOutput)$arguments}{
        my $call = $1;
        my $level = $call =~ /\bQt(\w+)Msg\b/ ? lc $1 : 'info';
        check($source, $level, $_) for $call =~ /$literal/g;
        ''
    }ge;
    check($source, '', $_) for grep { / \S/ } $code =~ /$literal/g;
}
print "$texts texts, $wrong wrong\n";
exit($wrong != 0);
