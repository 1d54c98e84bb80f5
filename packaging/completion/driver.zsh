# Makes an interactive zsh tell what it would offer: Ctrl-T completes the line, and writes what was
# offered to $OFFERED, one a line, and a mark to the terminal.
PS1= PS2= RPS1=
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
# Ctrl-T begins no other binding, for which the shell would wait.
bindkey '^T' offer
print -n -- '<offered>'
