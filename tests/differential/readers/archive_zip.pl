# Reads zip files with Archive::Zip.
use strict;
use warnings;
use Archive::Zip qw(:ERROR_CODES);
use Compress::Zlib qw(crc32);

Archive::Zip::setErrorHandler(sub { });
$| = 1;
while (my $file = <STDIN>) {
    chomp $file;
    my $items = eval {
        my $archive = Archive::Zip->new();
        die "not read\n" if $archive->read($file) != AZ_OK;
        my $found = "+";
        for my $member ($archive->members()) {
            my ($content, $status) = $member->contents();
            my $is_good = $status == AZ_OK && defined $content;
            $content = '' unless defined $content;
            $found .= ' ' . unpack('H*', $member->fileNameAsBytes()) . ':' .
                ($is_good ? length($content) . sprintf(':%08x', crc32($content)) : '!');
        }
        $found;
    };
    my $why = $@ =~ s/\n/ /gr;
    print defined $items ? "$items\n" : "- $why\n";
}
