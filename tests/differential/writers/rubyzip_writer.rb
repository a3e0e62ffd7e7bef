# Writes zip files with rubyzip: `rubyzip_writer.rb VARIANT FILE`, or `... list`.
require 'zip'

TREE = ['a.txt', 'b.bin', 'none', 'sub/c d.txt', 'sub/größe.txt'].freeze

def file(name)
  Zip::File.open(name, Zip::File::CREATE) do |archive|
    archive.mkdir('sub')
    TREE.each { |each| archive.add(each, each) }
    yield archive if block_given?
  end
end

def stream(name, method)
  Zip::OutputStream.open(name) do |archive|
    TREE.each do |each|
      archive.put_next_entry(each, nil, nil, method)
      archive.write(File.binread(each))
    end
  end
end

VARIANTS = {
  'rubyzip' => ->(name) { file(name) },
  'rubyzip with a comment' => ->(name) { file(name) { |archive| archive.comment = 'a comment' } },
  'rubyzip, changed' => ->(name) { file(name); Zip::File.open(name) { |archive| archive.remove('a.txt') } },
  'rubyzip with zip64' => ->(name) { Zip.write_zip64_support = true; file(name) },
  'rubyzip in UTF-8' => ->(name) { Zip.unicode_names = true; file(name) },
  'rubyzip stream' => ->(name) { stream(name, Zip::Entry::DEFLATED) },
  'rubyzip stream, stored' => ->(name) { stream(name, Zip::Entry::STORED) },
  'rubyzip buffer' => lambda do |name|
    File.binwrite(name, Zip::OutputStream.write_buffer { |archive| archive.put_next_entry('x'); archive.write('x') }.string)
  end
}.freeze

ARGV[0] == 'list' ? puts(VARIANTS.keys) : VARIANTS.fetch(ARGV[0]).call(ARGV[1])
