# Makes an interactive zsh print its offers: Ctrl-T completes the line, and writes the offers to
# $OFFERED, one on each line, and a mark to the terminal.
PS1= PS2= RPS1=
LISTMAX=1000  # a long list is shown without a question
unsetopt zle_bracketed_paste prompt_cr prompt_sp beep
zstyle ':completion:*' insert-tab false
fpath=($COMPLETIONS $fpath)
autoload -Uz compinit
compinit -u -D

# With -O, -A or -D the completion system only asks which of some words match.
compadd() {
  local -a offered
  if [[ ${@[1,(i)(-|--)]} == *-(O|A|D)\ * ]]; then
    builtin compadd "$@"
    return
  fi
  builtin compadd -A offered "$@"
  (( $#offered )) && print -rl -- $offered >>$OFFERED
  builtin compadd "$@"
}

offer() {
  : >$OFFERED
  zle list-choices
  BUFFER=
  print -n -- '<offered>'
}
zle -N offer
# No other binding begins with Ctrl-T, so the shell does not wait for more keys.
bindkey '^T' offer
print -n -- '<offered>'
