# Turns CHANGELOG.md into a change log as Debian has it; all versions get the date that is given.

function trailer() {
  item()
  if (version != "") printf "\n -- %s  %s\n\n", maintainer, date
}

# Prints the item that has been collected, in lines of 78 characters at most.
function item(  words, count, line, i) {
  count = split(text, words, " ")
  line = "  *"
  for (i = 1; i <= count; i++) {
    if (length(line) + 1 + length(words[i]) > 78) {
      print line
      line = "   "
    }
    line = line " " words[i]
  }
  if (count > 0) print line
  text = ""
}

/^## / {
  trailer()
  version = $2
  printf "%s (%s) unstable; urgency=medium\n\n", package, version
  next
}
/^# / || version == "" { next }
/^$/ { item() }
/^- / { item(); sub(/^- /, "") }
{ text = text " " $0 }
END { trailer() }
