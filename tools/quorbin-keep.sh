#!/bin/sh
# Keeps a received file: the command of an extension in Quorbin's settings. Quorbin deletes what it
# has received when a file of the same name comes, so the first step takes the file out of its
# reach; all that takes time comes after. See quorbin-keep(1).
set -u

# Control characters, and the marks of Unicode that turn the direction of text, end a line or have no
# width, become an underscore.
harmless() {
  printf %s "$1" | LC_ALL=C tr '[:cntrl:]' _ | LC_ALL=C sed '
    s/\xC2[\x80-\x9F]/_/g
    s/\xD8\x9C/_/g
    s/\xE2\x80[\x8B-\x8F\xA8-\xAE]/_/g
    s/\xE2\x81[\xA0-\xA9]/_/g
    s/\xEF\xBB\xBF/_/g'
}

fail() {
  printf 'quorbin-keep: %s\n' "$(harmless "$*")" >&2
  exit 1
}

usage() {
  echo 'usage: quorbin-keep [--ext EXT] [--to DIRECTORY] [--prefix PREFIX] [--no-open] FILE'
  exit "$1"
}

# Renames $1 to $2, or copies it to another file system; fails if there is a $2. That is one step,
# but mv need not say that it has left a file alone.
move() {
  mv -nT -- "$1" "$2" && [ ! -e "$1" ]
}

exists() {
  [ -e "$1" ] || [ -L "$1" ]
}

lower() {
  printf %s "$1" | LC_ALL=C tr '[:upper:]' '[:lower:]'
}

# The first $2 bytes of $1, without a character that is cut in two. What is removed at last is the
# character that the byte after them belongs to, and of a shorter text the added one.
cut_to() {
  printf '%s_' "$1" | head -c $(($2 + 1)) | LC_ALL=C sed 's/[^\x80-\xBF]\?[\x80-\xBF]\{0,3\}$//'
}

ext='' to='' prefix='' open=yes
while [ $# -gt 1 ]; do
  case $1 in
    --ext) ext=.${2#.} && shift 2 ;;
    --to) to=$2 && shift 2 ;;
    --prefix) prefix=$2 && shift 2 ;;
    --no-open) open='' && shift ;;
    *) usage 2 >&2 ;;
  esac
done
[ $# -eq 1 ] && [ "$ext" != . ] || usage 2 >&2
case $1 in
  --help) usage 0 ;;
  */*) file=$1 ;;
  *) file=./$1 ;;
esac

# Quorbin deletes only names that begin with its prefix. The next file of this name may be there
# already, so what tells is the new name.
held=${file%/*}/quorbin-keep.$$
while exists "$held"; do held=$held+; done # left by one that was killed
mv -nT -- "$file" "$held" && [ -f "$held" ] || fail "can't move $file"

if [ -z "$prefix" ]; then # as the service reads it; a line ends in where the value comes from
  prefix=$(quorbin-check 2>/dev/null |
    sed -n '/^Global Prefix: /{s///;s/ ([^(]*)$//;s/\\\\/\\/g;p;q;}')
  prefix=${prefix##*/}
fi
name=${file##*/}
name=${name#"${prefix:-f\$~.}"}

# Nothing hidden, nothing that looks like an option, nothing that steers a terminal.
name=$(harmless "$name")
case $name in
  [.-]*) name=_${name#?} ;;
  '') name=received ;;
esac
case $name in
  ?*.tar.*) suffix=.tar.${name##*.tar.} ;;
  ?*.*) suffix=.${name##*.} ;;
  *) suffix='' ;;
esac
stem=${name%"$suffix"}
if [ "$(printf %s "$name$ext" | wc -c)" -gt 245 ]; then # bytes; leaves room for a number
  stem=$(cut_to "$stem" 200)
  suffix=$(cut_to "$suffix" 40)
fi
# The sender's extension has chosen this command, but the end of the name chooses the application.
case $(lower "$suffix") in
  *"$(lower "$ext")") ;;
  *) suffix=$suffix$ext ;;
esac

if [ -z "$to" ]; then
  to=$(xdg-user-dir DOWNLOAD 2>/dev/null)
  [ "${to:-$HOME}" != "$HOME" ] || to=$HOME/Downloads # not set up
fi
case $to in
  /*) ;;
  *) to=./$to ;; # no place that cd alone knows, neither "-" nor one in CDPATH
esac
mkdir -p -- "$to" && to=$(cd -- "$to" && pwd) || fail "no directory $to: the file is kept as $held"

# Under its name the file appears as a whole.
arriving=$to/.quorbin-keep.$$
while exists "$arriving"; do arriving=$arriving+; done
if ! move "$held" "$arriving"; then
  rm -f -- "$arriving"
  fail "can't write to $to: the file is kept as $held"
fi
kept=$to/$stem$suffix
number=1
until move "$arriving" "$kept"; do
  exists "$kept" || fail "can't write $kept: the file is kept as $arriving"
  number=$((number + 1))
  kept="$to/$stem ($number)$suffix"
done
printf 'kept %s\n' "$(harmless "$kept")"

[ -n "$open" ] || exit 0
if command -v xdg-open >/dev/null; then exec xdg-open "$kept"; fi
exec gio open "$kept"
