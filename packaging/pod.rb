# Reads a podspec as CocoaPods does, holds it against CocoaPods' rules, and tells what it comes to.
#
# usage: ruby packaging/pod.rb PODSPEC...      in the tree's root; prints a JSON array, complaints on standard error
#
# Patterns are matched as CocoaPods matches them: against the list of all files, without regard to case, where "/**/" may
# be one slash and an empty last alternative in braces counts for nothing.
require 'json'

REQUIRED = %i[name version summary homepage license authors source].freeze
KNOWN = REQUIRED + %i[documentation_url platform dependency frameworks libraries resource_bundles source_files
                      exclude_files public_header_files preserve_paths requires_arc pod_target_xcconfig].freeze
HEADERS = /\.(h|hpp)\z/.freeze
ROOT = Dir.pwd
FILES = Dir.chdir(ROOT) { `git ls-files --cached --others --exclude-standard`.split("\n") }.select { |file| File.file?(file) }

$complaints = []
def complain(name, text)
  $complaints << "#{name}: #{text}"
end

module Pod
  class Spec
    class << self
      attr_accessor :last
    end
    attr_reader :attributes

    def initialize
      @attributes = {}
      yield self
      Spec.last = self
    end

    def method_missing(name, *values)
      attribute = name.to_s.chomp('=').to_sym
      return @attributes[attribute] if values.empty?
      (@attributes[:unknown] ||= []) << attribute unless KNOWN.include?(attribute)
      value = values.length == 1 ? values.first : values
      value = (@attributes[attribute] || []) << values if attribute == :dependency
      @attributes[attribute] = value
    end

    def respond_to_missing?(*)
      true
    end
  end
end

# Every pattern without braces that `pattern` stands for.
def alternatives(pattern)
  set = pattern[/\{[^}]*\}/]
  return [pattern] unless set
  set[1..-2].split(',').flat_map { |choice| alternatives(pattern.sub(set, choice)) }
end

def matches(pattern)
  patterns = alternatives(pattern).flat_map { |one| [one, one.gsub('/**/', '/')] }.uniq
  FILES.select do |file|
    patterns.any? { |one| File.fnmatch(one, file, File::FNM_CASEFOLD | File::FNM_PATHNAME) }
  end
end

# What the patterns of an attribute match; each has to match something.
def resolve(name, attribute, patterns)
  Array(patterns).flat_map do |pattern|
    found = matches(pattern)
    complain(name, "#{attribute}: #{pattern} matches nothing") if found.empty?
    found
  end.uniq
end

def check(name, spec, about)
  REQUIRED.each { |attribute| complain(name, "no #{attribute}") if spec[attribute].nil? || spec[attribute].empty? }
  complain(name, "CocoaPods knows no #{spec[:unknown].join(', ')}") if spec[:unknown]
  complain(name, "it calls itself #{spec[:name]}") unless spec[:name] == name
  complain(name, 'the summary is longer than 140 characters') if spec[:summary].length > 140
  { homepage: about['homepage'], authors: about['authors'], version: about['version'] }.each do |attribute, value|
    complain(name, "its #{attribute} is not that of packaging/about.json") unless spec[attribute] == value
  end
  complain(name, 'the home page is not on https') unless spec[:homepage].start_with?('https://')
  complain(name, 'the licence is another') unless spec[:license][:type] == about['licence']
  complain(name, 'there is no such licence file') unless FILES.include?(spec[:license][:file])
  source = spec[:source]
  complain(name, 'the source is another') unless source[:git] == about['source']
  complain(name, 'the tag does not name the version') unless source[:tag].to_s.include?(spec[:version])
  complain(name, 'the source is not on https, or not a .git') unless source[:git].match?(%r{\Ahttps://.*\.git\z})
  complain(name, 'it is for another system') unless spec[:platform].is_a?(Array) && spec[:platform].first == :ios
end

def read(path, about)
  name = File.basename(path, '.podspec')
  Pod::Spec.last = nil
  eval(File.read(path), TOPLEVEL_BINDING.dup, File.expand_path(path))
  spec = Pod::Spec.last.attributes
  check(name, spec, about)

  left_out = resolve(name, 'exclude_files', spec[:exclude_files])
  sources = resolve(name, 'source_files', spec[:source_files]) - left_out
  public_headers = resolve(name, 'public_header_files', spec[:public_header_files]) - left_out
  foreign = public_headers - sources
  complain(name, "public headers that are no source files: #{foreign.join(', ')}") unless foreign.empty?
  public_headers.each do |header|
    # What is public is imported by Swift.
    others = File.read(header).scan(/^#(?:import|include) (?!<(?:KXPublisher|Foundation|CoreLocation)\/)(.*)$/)
    complain(name, "#{header} includes #{others.join(', ')}") unless others.empty?
    complain(name, "#{header} is not for Objective-C") unless File.read(header).match?(%r{^#import <(Foundation|KXPublisher|CoreLocation)/})
  end
  resources = spec.fetch(:resource_bundles, {}).flat_map do |_, patterns|
    resolve(name, 'resource_bundles', patterns)
  end
  kept = resolve(name, 'preserve_paths', spec[:preserve_paths])
  settings = spec.fetch(:pod_target_xcconfig, {})
  { name: name, minimum: spec[:platform].last, sources: sources.reject { |file| file.match?(HEADERS) }, public_headers: public_headers,
    resources: resources, files: (sources + kept + resources + [spec[:license][:file]]).uniq,
    header_search_paths: settings['HEADER_SEARCH_PATHS'].to_s.scan(/"([^"]*)"/).flatten
                                                        .map { |folder| folder.sub('$(PODS_TARGET_SRCROOT)', '.') },
    standard: settings['CLANG_CXX_LANGUAGE_STANDARD'], frameworks: Array(spec[:frameworks]),
    libraries: Array(spec[:libraries]), dependencies: Array(spec[:dependency]) }
end

about = JSON.parse(File.read('packaging/about.json'))
pods = ARGV.map { |path| read(path, about) }
pods.combination(2) do |one, other|
  both = one[:sources] & other[:sources]
  complain(other[:name], "compiles what #{one[:name]} does: #{both.join(', ')}") unless both.empty?
end
puts JSON.pretty_generate(pods)
$complaints.each { |text| warn "check-packaging: #{text}" }
exit $complaints.empty?
