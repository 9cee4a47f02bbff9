# Basses for the left hand and for sequences: saws and pulses through a resonant low-pass.
pelma-bank 1
name = Analog Bass
version = 1.0

[Sub Growl]
osc1_wave = saw
osc2_wave = sine
osc2_level = 0.8
osc2_semitones = -12
cutoff = 220
resonance = 0.3
filter_env = 2
fenv_decay = 0.3
fenv_sustain = 0.2
key_tracking = 0.4
amp_sustain = 0.9
amp_release = 0.08

[Acid Line]
osc1_wave = saw
cutoff = 350
resonance = 0.82
filter_env = 4
fenv_decay = 0.22
fenv_sustain = 0
filter_velocity = 0.7
key_tracking = 0.2
amp_decay = 0.4
amp_sustain = 0.7
amp_release = 0.05

[Pluck Bass]
osc1_wave = pulse
osc1_width = 0.3
osc2_wave = saw
osc2_level = 0.5
osc2_detune = -8
cutoff = 400
resonance = 0.25
filter_env = 3.5
fenv_decay = 0.15
fenv_sustain = 0
amp_decay = 0.35
amp_sustain = 0.2
amp_release = 0.06

[Square Bass]
osc1_wave = pulse
osc1_width = 0.5
osc2_wave = pulse
osc2_width = 0.25
osc2_level = 0.5
osc2_semitones = -12
cutoff = 700
resonance = 0.15
filter_env = 1
fenv_decay = 0.4
amp_sustain = 0.85
amp_release = 0.1

[Reso Sweep]
osc1_wave = saw
osc2_wave = saw
osc2_level = 0.7
osc2_detune = 10
cutoff = 260
resonance = 0.7
filter_env = 2.5
fenv_attack = 0.25
fenv_decay = 0.9
fenv_sustain = 0.3
lfo_rate = 0.25
lfo_cutoff = 0.8
amp_sustain = 0.9
amp_release = 0.2

[Fat Saw Bass]
osc1_wave = saw
osc2_wave = saw
osc2_level = 0.8
osc2_semitones = -12
osc2_detune = 7
cutoff = 500
resonance = 0.2
filter_env = 2
fenv_decay = 0.35
fenv_sustain = 0.25
amp_sustain = 0.95
amp_release = 0.1
end
