# Reads zip files from front to back with IO::Uncompress::Unzip.
use strict;
use warnings;
use Compress::Zlib qw(crc32);
use IO::Uncompress::Unzip qw($UnzipError);

$| = 1;
while (my $file = <STDIN>) {
    chomp $file;
    my $items = eval {
        my $archive = IO::Uncompress::Unzip->new($file) or die "$UnzipError\n";
        my $found = "+";
        my $status = 1;
        for (; $status > 0; $status = $archive->nextStream()) {
            my $name = $archive->getHeaderInfo()->{Name};
            my ($content, $piece, $count) = ('', '');
            while (($count = $archive->read($piece)) > 0) { $content .= $piece }
            die "damaged\n" if $count < 0;
            utf8::encode($name) if utf8::is_utf8($name);
            $found .= ' ' . unpack('H*', $name) . ':' . length($content) . sprintf(':%08x', crc32($content));
        }
        die "$UnzipError\n" if $status < 0;
        $found;
    };
    my $why = $@ =~ s/\n/ /gr;
    print defined $items ? "$items\n" : "- $why\n";
}
