# Gives each "## " heading of a Markdown page the label GitHub gives it
# (lower case, punctuation dropped, blanks as hyphens), so that the API
# reference links to the guide's sections by the same names.
/^```/ { fenced = !fenced }
!fenced && /^## / {
  label = tolower(substr($0, 4))
  gsub(/[^a-z0-9 -]/, "", label)
  gsub(/ /, "-", label)
  $0 = $0 " {#" label "}"
}
{ print }
