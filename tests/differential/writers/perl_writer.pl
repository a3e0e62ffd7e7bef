# Writes zip files with Archive::Zip and IO::Compress::Zip: `perl_writer.pl VARIANT FILE`, or `... list`.
use strict;
use warnings;
use Archive::Zip qw(:CONSTANTS);
use IO::Compress::Zip qw($ZipError :constants);

my @tree = ('a.txt', 'b.bin', 'none', 'sub/c d.txt');

sub tree {
    my ($file, $level, $comment) = @_;
    my $archive = Archive::Zip->new();
    $archive->zipfileComment($comment) if defined $comment;
    $archive->addDirectory('sub');
    for my $name (@tree) {
        my $member = $archive->addFile($name);
        $member->desiredCompressionMethod($level ? COMPRESSION_DEFLATED : COMPRESSION_STORED);
        $member->desiredCompressionLevel($level) if $level;
    }
    my $string = $archive->addString('text', 'string.txt');
    $string->fileComment('of the item') if defined $comment;
    return $archive;
}

my %variants;
for my $level (0, 1, 6, 9) {
    $variants{"Archive::Zip $level"} = sub { tree($_[0], $level)->writeToFileNamed($_[0]) == 0 or die };
    $variants{"Archive::Zip $level to a pipe"} = sub {
        open(my $pipe, '|-', "cat >$_[0]") or die;
        tree($_[0], $level)->writeToFileHandle($pipe, 0) == 0 or die;
        close $pipe or die;
    };
}
$variants{'Archive::Zip with comments'} = sub { tree($_[0], 6, 'a comment')->writeToFileNamed($_[0]) == 0 or die };

my %options = (
    '' => [], 'stored' => [Method => ZIP_CM_STORE], 'streaming' => [Stream => 1], 'zip64' => [Zip64 => 1],
    'streaming zip64' => [Stream => 1, Zip64 => 1], 'streaming stored' => [Stream => 1, Method => ZIP_CM_STORE],
    'minimal' => [Minimal => 1], 'text' => [TextFlag => 1], 'level 9' => [-Level => 9],
    'with a comment' => [ZipComment => 'a comment', Comment => 'of the item'],
    'with an extra field' => [ExtraFieldLocal => ['ab' => 'ab'], ExtraFieldCentral => ['ab' => 'cd']],
    'with times' => [exTime => [1e9, 1e9, 1e9]], 'with owners' => [exUnixN => [70000, 5]],
    'with attributes' => [ExtAttr => 0644 << 16],
);
while (my ($name, $given) = each %options) {
    $variants{"IO::Compress::Zip $name"} = sub {
        my $archive = IO::Compress::Zip->new($_[0], Name => 'first.txt', @$given) or die $ZipError;
        $archive->print('text' x 100);
        $archive->newStream(Name => 'second.txt', @$given);
        $archive->print('more');
        $archive->close() or die;
    };
}
$variants{'refused: IO::Compress::Zip bzip2'} = sub {
    IO::Compress::Zip::zip('a.txt' => $_[0], Method => ZIP_CM_BZIP2) or die $ZipError;
};

if ($ARGV[0] eq 'list') {
    print "$_\n" for sort keys %variants;
} else {
    ($variants{$ARGV[0]} || $variants{"refused: $ARGV[0]"})->($ARGV[1]);
}
