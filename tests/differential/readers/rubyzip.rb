# Reads zip files with rubyzip: `rubyzip.rb file`, or `rubyzip.rb stream` from front to back.
require 'zip'
require 'zlib'

Zip.warn_invalid_date = false
$stdout.sync = true
$stderr.reopen(File::NULL)

def item(name, content)
  " #{name.b.unpack1('H*')}:" + (content ? "#{content.bytesize}:#{format('%08x', Zlib.crc32(content))}" : '!')
end

def from_file(name)
  found = +'+'
  Zip::File.open(name) do |archive|
    archive.each do |entry|
      content = begin
        entry.directory? ? '' : entry.get_input_stream.read
      rescue StandardError
        nil
      end
      found << item(entry.name, content)
    end
  end
  found
end

def from_stream(name)
  found = +'+'
  Zip::InputStream.open(name) do |stream|
    while (entry = stream.get_next_entry)
      found << item(entry.name, entry.directory? ? '' : stream.read)
    end
  end
  found
end

$stdin.each_line(chomp: true) do |name|
  puts(ARGV[0] == 'stream' ? from_stream(name) : from_file(name))
rescue StandardError => e
  puts "- #{e.class}: #{e.message.tr("\n", ' ')}"
end
