#!/usr/bin/perl
# header_pages.pl HEADER FOLDER: writes the pages of section 3 from the comments of bx.h, one for each
# group of entry points and bx.h(3) for the rest. An entry point without a comment is an error.
use strict;
use warnings;

my ($header, $folder) = @ARGV;
my $date = 'November 22, 2026';
open(my $in, '<', $header) or die "$header: $!\n";
my $text = do { local $/; <$in> };
my $name = qr/BX[A-Z]+(?![\w])|bx[A-Z]\w*/;

# ---- What the header holds

my %entry = map { $_ => 1 } $text =~ /^BXENTRY void (\w+)/mg;
my %type = map { $_ => 1 } $text =~ /^(?:typedef [\w ]+ |\} )(\w+);/mg;
my %constant = map { $_ => 1 } $text =~ /^#define (BX\w+)/mg;
my (%reason, %number, %shared);    # name => text; number => name; name => has others' text

while ($text =~ m{^/\* (.*) \*/\n((?:#define BXRC_\w+ \d+\n)+)}mg) {
  my ($why, $defines) = ($1, $2);
  my %group = reverse $defines =~ /(BXRC_\w+) (\d+)/g;
  for my $number (keys %group) {
    my $constant = $number{$number} = $group{$number};
    ($reason{$constant}, $shared{$constant}) = ($why, keys %group > 1);
  }
}

sub paragraphs {
  my ($comment) = @_;
  $comment =~ s{^/\*[ \n]?}{}; $comment =~ s{\s*\*/$}{}; $comment =~ s{^ \*(?: |$)}{}mg;
  return split /\n{2,}/, $comment;
}

# ---- mdoc

my ($out, $last, $break) = (undef, '', 0);

# Writes lines; a paragraph that was broken begins with them, except next to a heading or a list.
sub put {
  for my $line (@_) {
    print {$out} ".Pp\n" if $break && $last !~ /^\.S[hs]/ && $line !~ /^\.(?:S[hs]|Bl|Bd)/;
    $break = 0;
    print {$out} "$line\n";
    $last = $line;
  }
}
sub breakParagraph { $break = 1 }

sub plain {
  my ($words) = @_;
  $words =~ s/\\/\\e/g; $words =~ s/(?<!\w)-(?=\d)/\\-/g; $words =~ s/^([.'])/\\&$1/;
  return $words;
}

sub macro {
  my ($word) = @_;
  return "Fn $word" if $entry{$word};
  return "Vt $word" if $type{$word};
  return "Dv $word" if $constant{$word} || $word =~ /^BX\w+_\*$/;
  return "Fa $word" if $word =~ /^\*[a-z]\w*$/;
  return undef;
}

sub capitalised { my ($prose) = @_; return $prose =~ /^[a-z]+[A-Z]/ ? $prose : ucfirst $prose }

# A paragraph: names get their macros, sentences lines of their own.
sub prose {
  my ($prose) = @_;
  my @line;
  my $flush = sub { put(plain("@line")) if @line; @line = () };
  for my $word (split ' ', $prose) {
    my ($open, $core, $close) = $word =~ /^(\(?)(\*?\w+\*?)([).,;:]*)$/;
    my $macro = defined $core ? macro($core) : undef;
    if ($macro) {
      $flush->();
      put('.' . ($open ? 'Pf ( ' : '') . $macro . join('', map { " $_" } split //, $close));
    } else {
      push @line, $word;
      $flush->() if $word =~ /[a-z0-9)"]\.$/;
    }
  }
  $flush->();
}

sub tagged {    # "  create: what, and what\n          more"
  put('.Bl -tag -width Ds');
  for my $item (split /\n(?= ?\w)/, shift) {
    my ($tag, $body) = $item =~ /^\s*(\w+): +(.*)$/s or die "no item: $item\n";
    put(".It $tag");
    prose($body);
  }
  put('.El');
}

sub body {
  for my $paragraph (@_) {
    breakParagraph();
    $paragraph =~ /^ +\w+: / ? tagged($paragraph) : prose($paragraph);
  }
}

sub page {
  my ($title) = @_;
  open($out, '>', "$folder/$title.3") or die "$folder/$title.3: $!\n";
  my $upper = uc $title;
  put('.\" Made from bx.h.', ".Dd $date", ".Dt $upper 3", '.Os ferry');
}

sub seeAlso {
  put('.Sh SEE ALSO', (map { ".Xr $_ 3 ," } sort { lc $a cmp lc $b } @_), '.Xr bxm 7');
}

# ---- The pages of entry points

# The parts of a reason's text that speak of a call, each with what it says of it beside its name.
sub parts {
  my ($call, $why) = @_;
  my @parts;
  for my $part (split /(?<=\.) (?=(?:Any|$name)[^.]*: )/, $why) {
    my ($who, $what) = $part =~ /^([^.]*?): (.*)$/ or next;
    my @names = $who =~ /($name\*?)/g;
    my ($remark) = $who =~ /$name\*?,? ([a-z ]+)$/;
    for my $at (0 .. $#names) {
      my ($stem, $all) = $names[$at] =~ /^(\w+)(\*?)$/;
      next unless $all ? index($call, $stem) == 0 : $call eq $stem;
      push @parts, [$what, $who =~ / and / && $at < $#names ? undef : $remark];
    }
  }
  return @parts;
}

sub errors {
  my ($comment, @calls) = @_;
  my %said = map { $_ => 1 } $comment =~ /\b(\d{4})\b/g;
  my @own;
  for my $number (sort { $a <=> $b } keys %number) {
    my $constant = $number{$number};
    my ($part) = map { parts($_, $reason{$constant}) } @calls;
    next unless $said{$number} || ($part && !$shared{$constant});
    next unless $part || $reason{$constant} =~ /(?:^|\. )Any/; # else the text speaks of another call's
    my ($what, $remark) = $part ? @$part : $reason{$constant} =~ /^(?:[^.]*?: )?(.*)$/;
    push @own, [".It Dv $constant Pq $number" . ($remark ? " , No $remark" : ''), ucfirst $what];
  }
  put('.Sh ERRORS', 'The reasons that', '.Xr bx.h 3', 'lists for any call' . (@own ? ', and:' : '.'));
  return unless @own;
  put('.Bl -tag -width Ds');
  for (@own) { put($_->[0]); prose($_->[1]) }
  put('.El');
}

sub synopsis {
  my ($prototype) = @_;
  my ($call, $arguments) = $prototype =~ /^BXENTRY void (\w+)\((.*)\);/s;
  $arguments =~ s/\s+/ /g;
  put('.Ft void', ".Fo $call");
  for my $argument (split /, /, $arguments) {
    $argument =~ s/^(.*\*) (\w+)$/$1$2/;
    $argument =~ s/^(\w.*?)\*(\w+)$/$1 *$2/;
    put(".Fa \"$argument\"");
  }
  put('.Fc');
}

my %section;    # heading => its calls
my (@groups, %documented);
my $heading = '';
while ($text =~ m{^/\* ---- (.*?) -+ \*/$|^((?:/\*(?:(?!\*/).)*\*/\n)?)((?:BXENTRY void [^;]*;\n)+)}msg) {
  if (defined $1) { $heading = $1; next }
  my ($comment, $prototypes) = ($2, $3);
  my @calls = $prototypes =~ /^BXENTRY void (\w+)/mg;
  my ($names) = $comment =~ m{^/\*[\s*]*([\w, ]+) - };
  $names = join(' ', split /, /, $names // '');
  die "$header: the comment of " . join(', ', @calls) . " is missing or names others\n"
    unless $names eq "@calls";
  push @{$section{$heading}}, @calls;
  push @groups, [$heading, $comment, $prototypes, @calls];
  $documented{$_} = 1 for @calls;
}
for (keys %entry) { die "$header: $_ has no comment\n" unless $documented{$_} }

for my $group (@groups) {
  my ($heading, $comment, $prototypes, @calls) = @$group;
  page($calls[0]);
  my ($first, @rest) = paragraphs("$comment" =~ s/\n$//r);
  $first =~ s/^[\w, ]+ - //;
  my ($does) = $first =~ /^([^.:]*)/;
  $does =~ s/\s+/ /g;
  put('.Sh NAME', (map { ".Nm $_" . ($_ eq $calls[-1] ? '' : ' ,') } @calls), ".Nd $does");
  put('.Sh SYNOPSIS', '.In bx/bx.h');
  synopsis($_) for split /(?<=;)\n/, $prototypes;
  put('.Sh DESCRIPTION');
  body(ucfirst $first, @rest);
  errors($comment, @calls);
  my %own = map { $_ => 1 } @calls;
  seeAlso('bx.h', grep { !$own{$_} } @{$section{$heading}});
  for my $alias (@calls[1 .. $#calls]) {
    unlink "$folder/$alias.3";
    symlink("$calls[0].3", "$folder/$alias.3") or die "$folder/$alias.3: $!\n";
  }
}

# ---- bx.h(3)

my $list = 0;
sub closeList { put('.El') if $list; $list = 0 }
sub item {
  my ($tag, $said) = @_;
  put('.Bl -tag -width Ds -compact') unless $list;
  $list = 1;
  put(".It $tag");
  prose(capitalised($said)) if defined $said && $said ne '';
}

page('bx.h');
$text =~ m{\A(/\*.*?\*/)\n}s;
my ($front, $code) = ($1, substr($text, length $1));
my ($before, $conventions, $example) =
  $front =~ m{^/\*\n(.*?)\n \*\n( \* CONVENTIONS.*?)\n \*\n( \* EXAMPLE.*)\*/}s or die "$header: no front page\n";
my ($nameLine, @about) = paragraphs("/*\n$before");
my ($does) = $nameLine =~ /^bx\.h - (.*?)\.?$/;
put('.Sh NAME', '.Nm bx.h', ".Nd $does", '.Sh SYNOPSIS', '.In bx/bx.h', '.Sh DESCRIPTION');
body(@about);

my ($intro, @rules) = split /\n(?= *\d+\. )/, join("\n", paragraphs("/*\n$conventions"));
$intro =~ s/^CONVENTIONS\. //;
put('.Sh CONVENTIONS');
prose($intro);
put('.Bl -enum');
for (@rules) { s/^ *\d+\. //; put('.It'); prose($_) }
put('.El', '.Sh DECLARATIONS');

my $pending = '';    # the comment before
my $paragraph = sub {
  closeList();
  breakParagraph();
  body(paragraphs($pending)) if $pending;
  $pending = '';
};
put('.Ss Version');
while ($code =~ m{\G(?:
    /\*\ ----\ (?<heading>.*?)\ -+\ \*/\n
  | (?<comment>/\*(?:(?!\*/).)*\*/)\n
  | (?<calls>(?:BXENTRY\ void\ [^;]*;\n)+)
  | \#define\ (?<constant>\w+)(?:\ (?<value>[^\n/]*?))?\ *(?:/\*\ (?<said>[^\n]*)\ \*/)?\n
  | typedef\ struct\ \w+\ \{\n(?<fields>.*?)\n\}\ (?<struct>\w+);\n
  | typedef\ (?<old>[^\n]+)\ (?<new>\w+);\ *(?:/\*\ (?<is>[^\n]*)\ \*/)?\n
  | (?<other>[^\n]*)\n)}sgx) {
  my %found = %+;
  if (defined $found{heading}) {
    closeList();
    $paragraph->() if $pending;
    put('.Ss ' . $found{heading});
    if (my $calls = $section{$found{heading}}) {
      put(map { ".Xr $_ 3" . ($_ eq $calls->[-1] ? '' : ' ,') } @$calls);
    }
  } elsif (defined $found{comment}) {
    $paragraph->() if $pending;
    $pending = $found{comment};
  } elsif (defined $found{calls}) {
    $pending = '';
  } elsif (defined $found{constant}) {
    next unless defined $found{value} && $found{constant} !~ /^BX_[CB]\d|^BXENTRY$/;
    my $value = $found{value} =~ s/^\((.*)\)$/$1/r;
    $value = '' if $value =~ /^\{|\\/;
    $value = plain($value) =~ s/"/\\(dq/gr =~ s/ /\\ /gr;
    my $tag = "Dv $found{constant}" . ($value eq '' ? '' : " Pq $value");
    if (my $why = $reason{$found{constant}}) {
      $pending = '';
      item($tag, $why);
    } else {
      $paragraph->() if $pending;
      item($tag, $found{said});
    }
  } elsif (defined $found{struct}) {
    $paragraph->();
    breakParagraph();
    put(".Vt struct $found{struct} :");
    for (split /\n/, $found{fields}) {
      if (m{^\s*/\* (.*) \*/$}) { closeList(); breakParagraph(); put(ucfirst "$1:"); next }
      my ($type, $field, $said) = m{^\s*(\w+) ([\w\[\]]+); *(?:/\* (.*) \*/)?$} or die "$header: $_\n";
      item("Vt $type Fa $field", $said);
    }
    closeList();
  } elsif (defined $found{new}) {
    item("Vt $found{new} Pq Vt $found{old}", $found{is});
  } elsif ($found{other} =~ /^#if/) {
    $pending = '';
  } elsif ($found{other} eq '' && $pending) {
    $paragraph->();
  }
  last if pos($code) >= length $code;
}
closeList();

put('.Sh EXAMPLES');
my ($told, @program) = paragraphs("/*\n$example*/");
$told =~ s/^EXAMPLE\. //;
prose($told);
put('.Bd -literal -offset indent');
put(map { plain(s/^    //r) } split /\n/, join("\n\n", @program));
put('.Ed');
seeAlso(map { $_->[3] } @groups);
