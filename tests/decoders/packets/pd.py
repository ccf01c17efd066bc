"""Shows what the decoder below hands on, as Python writes it."""

import sigrokdecode as srd


class Decoder(srd.Decoder):
    api_version = 3
    id = 'packets'
    name = 'Packets'
    longname = 'Packets of a decoder'
    desc = 'What the decoder below hands on.'
    license = 'all rights reserved'
    inputs = ['sensor_3u5mgxs', 'monitor_3u5mgxs']
    outputs = []
    tags = ['Util']
    annotations = (('packet', 'Packet'),)
    annotation_rows = (('packets', 'Packets', (0,)),)

    def reset(self):
        pass

    def start(self):
        self.out_ann = self.register(srd.OUTPUT_ANN)

    def decode(self, ss, es, data):
        self.put(ss, es, self.out_ann, [0, [str(data)]])
